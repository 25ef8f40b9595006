// Messages as JSON, both ways.
#include <cmath>
#include <cstring>

#include <random>

#include <gtest/gtest.h>

#include "base/hex.h"
#include "md/md_message.h"
#include "messages/json_reader.h"
#include "messages/json_writer.h"
#include "messages/received.h"
#include "text/hex_reader.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::MD_Message;
using MD::test::inputOf;
using MD::test::lineErrorOf;
using MD::test::Reports;

constexpr std::uint8_t kIterMap = 1;
constexpr std::uint8_t kMInt = 6;
constexpr std::uint8_t kMsgT = 70;

class Json : public testing::Test {
 protected:
  Json() { MD::test::loadDictionary(MD::test::kDictionary); }

  /// The message of a JSON text as hex, or the error.
  static std::string encoded(std::uint8_t code, const std::string& json) {
    const QuietLibrary quiet;
    const FieldNames names;
    const auto message = MD_Message::createFromPB(code);
    const std::string error = lineErrorOf([&] { JsonReader(names).read(json, *message); });
    std::string hex;
    appendHex(message->getBinary(), message->getSizeImpl(), hex);
    return error == "nothing" ? hex : error;
  }

  /// The JSON of a message, and after it the notes that were made.
  static std::string decoded(const std::string& hex) {
    const QuietLibrary quiet;
    const FieldNames names;
    Reports reports;
    reports.reporter.setInput("f");
    reports.reporter.setLine(1);
    std::vector<std::uint8_t> bytes;
    parseHex(hex, Blanks::BetweenBytes, bytes);
    std::string json;
    const auto message = receive(inputOf(bytes));
    noteLeftOut(*message, inputOf(bytes), reports.reporter);
    JsonWriter(names, reports.reporter).append(*message, json);
    return json + reports.text();
  }
};

struct RoundTrip {
  const char* name;
  const char* json;
};

constexpr RoundTrip kRoundTrips[] = {
    {"Empty", R"({})"},
    {"Order", R"({"SYMBOL":"AB","QTY":300,"BID":101.25,"CH":"B"})"},
    {"Char", R"({"CH":"\u0000","CH2":"\""})"},
    {"CharNotAscii", R"({"CH":{"hex":"80"},"CH2":{"hex":"ff"}})"},
    {"Int", R"({"QTY":-2147483648,"QTY2":2147483647,"TICK":0,"HIGH":32768})"},
    {"Int64", R"({"SEQ":-9223372036854775808,"SEQ2":9223372036854775807})"},
    {"EpochNS", R"({"RECV":1723161254024619568,"RECV2":18446744073709551615})"},
    {"DoubleExtremes", R"({"BID":5e-324,"ASK":-1.7976931348623157e+308})"},
    {"DoubleNoise", R"({"BID":0.30000000000000004,"ASK":123456789012345680})"},
    {"FloatNoise", R"({"VOLA":0.1,"VOLA2":3.4028235e+38})"},
    {"Zeros", R"({"BID":0,"ASK":-0.0,"VOLA":-0.0})"},
    {"NotFinite", R"({"BID":"NaN","ASK":"-Infinity","VOLA":"Infinity","VOLA2":"NaN"})"},
    {"OtherNaN", R"({"BID":{"bits":"fff8000000000000"},"ASK":{"bits":"7ff0000000000001"},"VOLA":{"bits":"7fc00001"}})"},
    {"String", "{\"SYMBOL\":\"\",\"VENUE\":\"a\\\"\\\\\\n\\u0001\xe2\x82\xac\"}"},
    {"StringNul", R"({"SYMBOL":"a\u0000b"})"},
    {"StringNotUtf8", R"({"SYMBOL":{"hex":"41ff"}})"},
    {"Buffer", R"({"BLOB":{"hex":""},"BLOB2":{"hex":"00ff41"}})"},
    {"DateTime",
     R"({"WHEN":{"date":20240115,"time":93000000,"offset":-300},"WHEN2":{"date":19000000,"time":0,"offset":0}})"},
    {"DateTimePacked", R"({"WHEN":{"date":20240115,"time":93000000,"offset":0,"packed":16140918119635554624}})"},
};

TEST_F(Json, IsReadBackToTheSameBytesInEveryEncoding) {
  for (const RoundTrip& row : kRoundTrips) {
    for (const std::uint8_t code : {kIterMap, kMInt, kMsgT}) {
      SCOPED_TRACE(std::string(row.name) + ", encoding " + std::to_string(code));
      const std::string hex = encoded(code, row.json);
      EXPECT_EQ(decoded(hex), row.json) << hex;
    }
  }
}

TEST_F(Json, GoldenBytes) {
  EXPECT_EQ(encoded(kMInt, R"({"SYMBOL":"AB","QTY":300})"),
            "063c0003414200"
            "2c01022c01");
  EXPECT_EQ(encoded(kIterMap, R"({"SYMBOL":"AB","QTY":300})"),
            "013c000300414200"
            "2c012c010000");
  EXPECT_EQ(encoded(kMsgT, R"({"SYMBOL":"AB","QTY":300})"),
            "46515231"
            "003c000600000003414200"
            "012c0002000000040000012c");
}

TEST_F(Json, AnIntegerKeepsTheWidthThatAChangeInPlaceLeft) {
  const auto message = MD_Message::createFromPB(kMInt);
  ASSERT_TRUE(message->add(300, -7));
  ASSERT_TRUE(message->add(10, 'B'));
  ASSERT_TRUE(message->update(300, 5));
  std::string hex;
  appendHex(message->getBinary(), message->getSizeImpl(), hex);
  ASSERT_EQ(hex,
            "06"
            "2c010405000000"
            "0a000142");
  const char* const json = R"({"QTY":{"value":5,"bytes":4},"CH":"B"})";
  EXPECT_EQ(decoded(hex), json);
  EXPECT_EQ(encoded(kMInt, json), hex);
  EXPECT_EQ(encoded(kMsgT, R"({"QTY":{"value":5,"bytes":4}})"),
            "46515231"
            "012c00020000000400000005");
}

TEST_F(Json, WhatAnUpdateOfAnotherTypeLeavesInMIntComesBack) {
  const struct {
    const char* name;
    const char* hex;
    const char* json;
  } cases[] = {
      {"ByteAbove127", "062c0101c8", R"({"QTY":{"value":200,"bytes":1}})"},
      {"SmallInTwoBytes", "062c01020500", R"({"QTY":{"value":5,"bytes":2}})"},
      {"NegativeInTwoBytes", "062c01020080", R"({"QTY":{"value":-32768,"bytes":2}})"},
      {"StringWithoutNul", "063c00024142", R"({"SYMBOL":{"hex":"41","end":"42"}})"},
      {"OneByteString", "063c000141", R"({"SYMBOL":{"hex":"","end":"41"}})"},
  };
  for (const auto& [name, hex, json] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(decoded(hex), json);
    EXPECT_EQ(encoded(kMInt, json), hex);
  }
  EXPECT_EQ(encoded(kMsgT, R"({"SYMBOL":{"hex":"41","end":"42"}})"),
            "SYMBOL: MsgT does not store a string that ends in another byte than NUL");
  EXPECT_EQ(encoded(kIterMap, R"({"QTY":{"value":5,"bytes":2}})"), "QTY: IterMap does not store 5 in 2 bytes");
}

/// Builds messages by operations of every kind and type.
class RandomOperations {
 public:
  explicit RandomOperations(std::uint32_t seed) : m_random(seed) {}

  void apply(MD_Message& message) {
    const std::uint16_t id = pick(kIds);
    switch (number(8)) {
      case 0:
        message.eraseImpl(id);
        return;
      case 1:
      case 2:
      case 3:
        change(message, id, [](MD_Message& on, std::uint16_t field, auto value) { on.update(field, value); });
        return;
      default:
        change(message, id, [](MD_Message& on, std::uint16_t field, auto value) { on.add(field, value); });
    }
  }

  std::size_t number(std::size_t below) { return static_cast<std::size_t>(m_random()) % below; }

 private:
  static constexpr std::uint16_t kIds[] = {10, 11, 300, 301, 20, 21, 40, 41, 22, 23,
                                           60, 61, 70,  71,  80, 81, 90, 91, 100};

  template <class T, std::size_t N>
  T pick(const T (&values)[N]) {
    return values[number(N)];
  }

  /// With a value of any type, whatever the field's is.
  template <class Use>
  void change(MD_Message& message, std::uint16_t id, Use use) {
    const std::uint64_t bits =
        std::uint64_t{static_cast<std::uint32_t>(m_random())} << 32 | static_cast<std::uint32_t>(m_random());
    std::string bytes(pick({std::size_t{0}, std::size_t{1}, std::size_t{2}, std::size_t{3}, std::size_t{4},
                            std::size_t{7}, std::size_t{8}, std::size_t{254}}),
                      ' ');
    for (char& c : bytes) {
      c = static_cast<char>(number(256));
    }
    switch (number(9)) {
      case 0:
        return use(message, id, static_cast<char>(bits));
      case 1:
        return use(message, id,
                   pick({0, 1, -1, 127, 128, 255, 32767, 32768, -32768, static_cast<int>(bits & 0x7fffffff)}));
      case 2:
        return use(message, id, static_cast<std::int64_t>(bits));
      case 3:
        return use(message, id, realOf<float>(static_cast<std::uint32_t>(bits)));
      case 4:
        return use(message, id, pick({0.0, -0.0, 101.25, realOf<double>(bits), HUGE_VAL, -HUGE_VAL}));
      case 5:
        return use(message, id, MD_Message::String(bytes));
      case 6:
        return use(message, id,
                   MD_Message::Buffer(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                      static_cast<std::uint16_t>(bytes.size())));
      case 7:
        return use(message, id,
                   MD::MD_DateTime(static_cast<int>(number(30'000'000)), static_cast<int>(number(1U << 29)),
                                   static_cast<short>(bits & 0x7fff)));
      default:
        return use(message, id, MD::MD_EpochNS(bits));
    }
  }

  template <class T, class Bits>
  static T realOf(Bits bits) {
    T value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }

  std::mt19937 m_random;
};

TEST_F(Json, WhateverOperationsBuildComesBackByteForByte) {
  const QuietLibrary quiet;
  for (const std::uint8_t code : {kIterMap, kMInt, kMsgT}) {
    SCOPED_TRACE("encoding " + std::to_string(code));
    RandomOperations operations(code);
    for (int i = 0; i != 1500; ++i) {
      const auto message = MD_Message::createFromPB(code);
      for (std::size_t left = operations.number(40); left != 0; --left) {
        operations.apply(*message);
      }
      std::string hex;
      appendHex(message->getBinary(), message->getSizeImpl(), hex);
      const std::string json = decoded(hex);
      ASSERT_EQ(json.find("mdmsg: "), json.npos) << json;
      ASSERT_EQ(encoded(code, json), hex) << json;
    }
  }
}

TEST_F(Json, OtherSpellingsOfTheSameValues) {
  const struct {
    const char* name;
    const char* json;
    const char* hex;
  } cases[] = {
      {"Blanks", " { \"QTY\" : 5 } ", "062c010105"},
      {"ById", R"({"300":5})", "062c010105"},
      {"MinusZeroInt", R"({"QTY":-0})", "062c010100"},
      {"MinusZeroDouble", R"({"BID":-0})",
       "0616000800000000000000"
       "80"},
      {"Exponent", R"({"BID":1.5E0})", "06160008000000000000f83f"},
      {"EscapedKey", R"({"\u0051TY":5})", "062c010105"},
      {"StringAsHex", R"({"SYMBOL":{"hex":"4142"}})", "063c0003414200"},
      {"UpperCaseHex", R"({"BLOB":{"hex":"FF"}})", "06460001ff"},
      {"BitsOfANumber", R"({"VOLA":{"bits":"3f000000"}})", "062800040000003f"},
      {"NaturalWidth", R"({"QTY":{"bytes":1,"value":5}})", "062c010105"},
      {"Escapes", R"({"SYMBOL":"\"\\\/\b\f\n\r\t"})", "063c0009225c2f080c0a0d0900"},
      {"SurrogatePair", R"({"SYMBOL":"\ud83d\ude00"})", "063c0005f09f988000"},
      {"EscapedNul", R"({"SYMBOL":"A\u0000B"})", "063c000441004200"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(encoded(kMInt, row.json), row.hex);
  }
}

struct Refusal {
  const char* name;
  std::string json;
  std::string error;
};

const Refusal kRefusals[] = {
    {"UnknownName", R"({"NOPE":1})", "NOPE: not in the dictionary test dictionary"},
    {"UnknownId", R"({"999":1})", "999: not in the dictionary test dictionary"},
    {"UncarriedType", R"({"SHORTY":1})", "SHORTY: values of type SHORT are not carried by messages"},
    {"SameKey", R"({"QTY":1,"QTY":1})", "QTY: is given twice"},
    {"NameAndId", R"({"BID":1,"22":1})", "22: is given twice"},
    {"Null", R"({"QTY":null})", R"(QTY: INT takes an integer or {"value":..,"bytes":..}, not null)"},
    {"Boolean", R"({"CH":true})", R"(CH: CHAR takes a string of one character or {"hex":..}, not true)"},
    {"Array", R"({"SEQ":[1]})", "SEQ: INT64 takes an integer, not an array"},
    {"Fraction", R"({"QTY":1.5})", "QTY: \"1.5\" is not an integer"},
    {"FractionOfZero", R"({"QTY":1.0})", "QTY: \"1.0\" is not an integer"},
    {"IntTooLarge", R"({"QTY":2147483648})", "QTY: 2147483648 does not fit INT (-2147483648 to 2147483647)"},
    {"IntTooSmall", R"({"TICK":-2147483649})", "TICK: -2147483649 does not fit INT (-2147483648 to 2147483647)"},
    {"Int64TooLarge", R"({"SEQ":9223372036854775808})",
     "SEQ: 9223372036854775808 does not fit INT64 (-9223372036854775808 to 9223372036854775807)"},
    {"Int64FarTooLarge", R"({"SEQ":99999999999999999999999})",
     "SEQ: 99999999999999999999999 does not fit INT64 (-9223372036854775808 to 9223372036854775807)"},
    {"EpochNegative", R"({"RECV":-1})", "RECV: -1 does not fit EPOCH_NSEC (0 to 18446744073709551615)"},
    {"EpochTooLarge", R"({"RECV":18446744073709551616})",
     "RECV: 18446744073709551616 does not fit EPOCH_NSEC (0 to 18446744073709551615)"},
    {"EpochString", R"({"RECV":"1"})",
     "RECV: EPOCH_NSEC takes an integer or a timestamp such as \"2024-06-03T09:30:00Z\", not the string \"1\""},
    {"IntString", R"({"QTY":"5"})", R"(QTY: INT takes an integer or {"value":..,"bytes":..}, not the string "5")"},
    {"DoubleTooLarge", R"({"BID":1e999})", "BID: column 12: 1e999 is too large a number"},
    {"DoubleTooSmall", R"({"BID":1e-999})", "BID: 1e-999 does not fit DOUBLE: too large, or too close to 0"},
    {"FloatTooLarge", R"({"VOLA":1e39})", "VOLA: 1e39 does not fit FLOAT: too large, or too close to 0"},
    {"DoubleName", R"({"BID":"inf"})",
     R"(BID: DOUBLE takes a number, "NaN", "Infinity", "-Infinity" or {"bits":..}, not the string "inf")"},
    {"CharEmpty", R"({"CH":""})", "CH: \"\" is 0 bytes, a CHAR is one"},
    {"CharTwo", R"({"CH":"BB"})", "CH: \"BB\" is 2 bytes, a CHAR is one"},
    {"CharNotAscii", "{\"CH\":\"\xc3\xa9\"}", "CH: \"\xc3\xa9\" is 2 bytes, a CHAR is one"},
    {"CharHexTwo", R"({"CH":{"hex":"8081"}})", "CH: \"\\x80\\x81\" is 2 bytes, a CHAR is one"},
    {"CharNumber", R"({"CH":5})", R"(CH: CHAR takes a string of one character or {"hex":..}, not a number)"},
    {"StringNumber", R"({"SYMBOL":5})", R"(SYMBOL: STRING takes a string or {"hex":..}, not a number)"},
    {"BufferString", R"({"BLOB":"00"})", R"(BLOB: BUFFER takes {"hex":..}, not the string "00")"},
    {"BufferHexOdd", R"({"BLOB":{"hex":"0"}})",
     "BLOB: column 1: odd number of hex digits, the last byte is incomplete"},
    {"BufferHexNumber", R"({"BLOB":{"hex":12}})", "BLOB: \"hex\" takes a string of hex digits"},
    {"BufferEmptyObject", R"({"BLOB":{}})", R"(BLOB: BUFFER takes {"hex":..})"},
    {"BufferOtherMember", R"({"BLOB":{"bits":"00"}})", R"(BLOB: BUFFER takes {"hex":..})"},
    {"ObjectUnknownMember", R"({"BLOB":{"hax":"00"}})", R"(BLOB: "hax" is not known here; BUFFER takes {"hex":..})"},
    {"ObjectMemberTwice", R"({"BLOB":{"hex":"00","hex":"00"}})", "BLOB: \"hex\" is given twice"},
    {"ObjectInObject", R"({"BLOB":{"hex":{}}})", R"(BLOB: BUFFER takes {"hex":..}, not an object inside an object)"},
    {"ObjectForInt64", R"({"SEQ":{"value":1,"bytes":8}})", "SEQ: INT64 takes an integer, not an object"},
    {"BitsTooShort", R"({"BID":{"bits":"7ff8"}})", "BID: the bits of a DOUBLE are 16 hex digits"},
    {"BitsTooLong", R"({"VOLA":{"bits":"7ff8000000000000"}})", "VOLA: the bits of a FLOAT are 8 hex digits"},
    {"WidthNotStored", R"({"QTY":{"value":5,"bytes":3}})", "QTY: mInt does not store 5 in 3 bytes"},
    {"EndOfTwoBytes", R"({"SYMBOL":{"hex":"41","end":"4142"}})", "SYMBOL: \"end\" is one byte"},
    {"WidthTooSmall", R"({"QTY":{"value":300,"bytes":1}})", "QTY: mInt does not store 300 in 1 bytes"},
    {"WidthMissing", R"({"QTY":{"value":5}})", R"(QTY: INT takes an integer or {"value":..,"bytes":..})"},
    {"DateTimePart", R"({"WHEN":{"date":20240115,"time":1}})",
     R"(WHEN: DATETIME takes {"date":..,"time":..,"offset":..})"},
    {"DateTimeDate", R"({"WHEN":{"date":20241399,"time":1,"offset":0}})",
     "WHEN: 20241399 is not a date (years 1900 to 2155, months to 15, days to 31)"},
    {"DateTimeOffset", R"({"WHEN":{"date":20240115,"time":1,"offset":32768}})",
     "WHEN: 32768 does not fit \"offset\" (-32768 to 32767)"},
    {"DateTimeString", R"({"WHEN":{"date":"20240115","time":1,"offset":0}})",
     "WHEN: \"date\" takes an integer, not a string"},
    {"DateTimePackedOther", R"({"WHEN":{"date":20240115,"time":1,"offset":0,"packed":1}})",
     "WHEN: \"packed\" does not match the date, time and offset beside it"},
    {"Unreadable", R"({"QTY":{"unreadable":"05"}})",
     "QTY: \"unreadable\" shows bytes that could not be read; they cannot be encoded"},
    {"NoObject", "[1]", "a message is one JSON object, not an array"},
    {"NumberAlone", "5", "a message is one JSON object, not a number"},
    {"StringAlone", "\"QTY\"", "a message is one JSON object, not a string"},
    {"NullAlone", "null", "a message is one JSON object, not null"},
    {"NotJson", "QTY=5", "column 1: not a JSON value"},
    {"CutShort", R"({"QTY":5)", "column 9: a comma or '}' is missing after the value"},
    {"TwoObjects", R"({"QTY":5}{})", "column 10: text after the value"},
    {"LeadingZero", R"({"QTY":05})", "column 9: a comma or '}' is missing after the value"},
    {"BareNaN", R"({"BID":NaN})", "BID: column 8: not a JSON value"},
    {"NotUtf8", "{\"SYMBOL\":\"\xff\"}", "SYMBOL: column 12: not UTF-8"},
    {"OverlongUtf8", "{\"SYMBOL\":\"A\xc0\x80\"}", "SYMBOL: column 13: not UTF-8"},
    {"SurrogateInUtf8", "{\"SYMBOL\":\"\xed\xa0\x80\"}", "SYMBOL: column 12: not UTF-8"},
    {"BeyondUnicode", "{\"SYMBOL\":\"\xf4\x90\x80\x80\"}", "SYMBOL: column 12: not UTF-8"},
    {"CutUtf8", "{\"SYMBOL\":\"\xe2\x82\"}", "SYMBOL: column 12: not UTF-8"},
    {"KeyNotUtf8", "{\"\xff\":1}", "column 3: not UTF-8"},
    {"HighSurrogateAlone", R"({"SYMBOL":"A\ud800B"})", "SYMBOL: column 13: half of a surrogate pair"},
    {"HighSurrogates", R"({"SYMBOL":"\ud800\ud800"})", "SYMBOL: column 12: half of a surrogate pair"},
    {"LowSurrogateAlone", R"({"SYMBOL":"A\udc00"})",
     "SYMBOL: column 11: the string that begins here has half of a surrogate pair"},
    {"LowSurrogateInKey", R"({"SYMBOL":"A","\udfff":1})",
     "column 15: the string that begins here has half of a surrogate pair"},
    {"NoHexDigit", R"({"SYMBOL":"\u00g0"})", "SYMBOL: column 12: \\u takes four hex digits"},
    {"UnknownEscape", R"({"SYMBOL":"A\x41"})", "SYMBOL: column 13: unknown escape sequence"},
    {"ControlCharacter", "{\"SYMBOL\":\"A\tB\"}", "SYMBOL: column 13: a control character that is not escaped"},
    {"StringNotClosed", R"({"SYMBOL":"AB)", "SYMBOL: column 14: the string is never closed"},
    {"NoKey", R"({"QTY":1,})", "column 10: a key in double quotes is missing"},
    {"NoColon", R"({"QTY" 1})", "QTY: column 8: a colon is missing after the key"},
    {"NoFraction", R"({"BID":1.})", "BID: column 10: a digit is missing after the decimal point"},
    {"NoExponent", R"({"BID":1e+})", "BID: column 11: a digit is missing in the exponent"},
    {"MinusAlone", R"({"BID":-})", "BID: column 9: not a JSON value"},
    {"LongNumber", "{\"SEQ\":1" + std::string(310, '0') + "}",
     "SEQ: column 318: 1" + std::string(199, '0') + "... is too large a number"},
    {"Comment", R"({/**/"QTY":1})", "column 2: a key in double quotes is missing"},
};

TEST_F(Json, RefusesWhatDoesNotFit) {
  for (const Refusal& row : kRefusals) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(encoded(kMInt, row.json), row.error);
  }
}

TEST_F(Json, RefusesNulBytesWhichEndNoLine) {
  using namespace std::string_literals;
  EXPECT_EQ(encoded(kMInt, "{\"QTY\":5}\0{\"QTY\":6}"s), "column 10: a NUL byte");
  EXPECT_EQ(encoded(kMInt, "{\"QTY\":5}\0"s), "column 10: a NUL byte");
}

TEST_F(Json, RefusesStringsAndBuffersThatTheEncodingCannotHold) {
  const struct {
    const char* name;
    std::uint8_t code;
    std::size_t longestString;
    std::size_t longestBuffer;
  } cases[] = {{"mInt", kMInt, 254, 255}, {"IterMap", kIterMap, 65534, 65535}, {"MsgT", kMsgT, 65535, 65535}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const auto stringJson = [](std::size_t length) { return R"({"SYMBOL":")" + std::string(length, 'x') + "\"}"; };
    const auto bufferJson = [](std::size_t length) {
      return R"({"BLOB":{"hex":")" + std::string(2 * length, '0') + "\"}}";
    };
    EXPECT_EQ(decoded(encoded(row.code, stringJson(row.longestString))), stringJson(row.longestString));
    EXPECT_EQ(decoded(encoded(row.code, bufferJson(row.longestBuffer))), bufferJson(row.longestBuffer));
    EXPECT_EQ(encoded(row.code, stringJson(row.longestString + 1)),
              "SYMBOL: " + std::to_string(row.longestString + 1) + " bytes are too long for a STRING of " + row.name);
    EXPECT_EQ(encoded(row.code, bufferJson(row.longestBuffer + 1)),
              "BLOB: " + std::to_string(row.longestBuffer + 1) + " bytes are too long for a BUFFER of " + row.name);
  }
}

struct Received {
  const char* name;
  const char* hex;
  const char* json;  // followed by the notes
};

constexpr Received kReceived[] = {
    {"UnknownField", "06 2c010105 e703021122 0a000142",
     "{\"QTY\":5,\"CH\":\"B\"}"
     "mdmsg: f:1: note: 5 bytes dropped: field 999 is not in the dictionary test dictionary\n"},
    {"OneByteTail", "06 2c010105 0a",
     "{\"QTY\":5}"
     "mdmsg: f:1: note: 1 byte dropped: the last byte is not a field id\n"},
    {"OtherTypeOnTheWire", "46515231 012c00050000000400000005",
     "{}"
     "mdmsg: f:1: note: 12 bytes dropped: field 300 has another type in the dictionary test dictionary\n"},
    {"UncarriedType", "06 c800020102 2c010105",
     "{\"SHORTY\":{\"unreadable\":\"0102\"},\"QTY\":5}"
     "mdmsg: f:1: note: field SHORTY: values of type SHORT are not carried by messages\n"},
    {"TruncatedInMInt", "06 16000800",
     "{\"BID\":{\"unreadable\":\"00\"}}"
     "mdmsg: f:1: note: field BID: the message is truncated within the value, of which it has 1 of 8 bytes\n"},
    {"TruncatedInIterMap", "01 3c000500 4142",
     "{\"SYMBOL\":{\"unreadable\":\"4142\"}}"
     "mdmsg: f:1: note: field SYMBOL: the message is truncated within the value, of which it has 2 of 5 bytes\n"},
    {"TruncatedInMsgT", "46515231 0046000effffffff4142",
     "{\"BLOB\":{\"unreadable\":\"4142\"}}"
     "mdmsg: f:1: note: field BLOB: the message is truncated within the value, of which it has 2 of 4294967295 "
     "bytes\n"},
    {"IntOfThreeBytes", "06 2c0103010000",
     "{\"QTY\":{\"unreadable\":\"010000\"}}"
     "mdmsg: f:1: note: field QTY: 3 bytes: invalid length for INT\n"},
    {"RepeatedField", "06 2c010105 0a000142 2c010106 2c010107",
     "{\"CH\":\"B\",\"QTY\":7}"
     "mdmsg: f:1: note: field QTY: occurs 3 times; the last value is used\n"},
    {"EmptyStringWithoutNul", "06 0a000142 3c0000",
     "{\"CH\":\"B\",\"SYMBOL\":\"\"}"
     "mdmsg: f:1: note: field SYMBOL: encode writes other bytes than these, from byte 7 on\n"},
    {"NoNulBehindAStringOfMsgT", "46515231 003c0006000000024142",
     "{\"SYMBOL\":\"A\"}"
     "mdmsg: f:1: note: field SYMBOL: encode writes other bytes than these, from byte 13 on\n"},
    {"OtherHeader", "46000000",
     "{}"
     "mdmsg: f:1: note: encode writes other bytes than these, from byte 1 on\n"},
    {"HeaderCutShort", "4651",
     "{}"
     "mdmsg: f:1: note: encode writes other bytes than these, from byte 2 on\n"},
};

TEST_F(Json, ReceivedBytesAreShownAsFarAsTheyCanBeRead) {
  for (const Received& row : kReceived) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(decoded(row.hex), row.json);
  }
}

TEST_F(Json, AnUnknownEncodingIsRefused) {
  EXPECT_EQ(lineErrorOf([] {
              receive(inputOf({0x07, 0x01}));
            }),
            "unknown encoding byte 07 (01 IterMap, 06 mInt, 46 MsgT)");
  EXPECT_EQ(lineErrorOf([] { receive(inputOf({})); }), "the message is empty");
}

TEST_F(Json, EveryFieldIsShownWhateverTheBytes) {
  // Every prefix and every changed byte of a message in each encoding.
  for (const std::uint8_t code : {kIterMap, kMInt, kMsgT}) {
    const std::string hex =
        encoded(code, R"({"SYMBOL":"AB","QTY":300,"BID":1.5,"BLOB":{"hex":"0102"},"CH":"B","RECV":5})");
    for (std::size_t length = 2; length <= hex.size(); length += 2) {
      const std::string json = decoded(hex.substr(0, length));
      EXPECT_EQ(json[0], '{');
      EXPECT_NE(json.find('}'), json.npos);
    }
    for (std::size_t i = 2; i != hex.size(); ++i) {
      std::string changed = hex;
      changed[i] = changed[i] == 'f' ? '0' : 'f';
      const std::string json = decoded(changed);
      EXPECT_EQ(json[0], '{');
      EXPECT_NE(json.find('}'), json.npos);
    }
  }
}

}  // namespace
