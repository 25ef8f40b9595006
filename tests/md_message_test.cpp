#include "md/md_message.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

using namespace std::string_literals;

// Notes which slot was reached with which arguments, and does nothing else.
class SlotRecorder final : public MD_Message {
 public:
  using MD_Message::printError;

  std::string lastCall;
  bool result = true;
  Ids ids;  // what the message claims to hold

  std::uint8_t getPB() const override { return 0; }
  const std::uint8_t* fieldData(std::uint16_t, std::uint8_t&, std::uint32_t&) const override { return nullptr; }
  std::unique_ptr<MD_Message> createEmpty() const override { return nullptr; }
  std::unique_ptr<MD_Message> clone() const override { return nullptr; }
  std::unique_ptr<MD_Message> moveToNew() override { return nullptr; }
  bool eraseArrayImpl(const std::vector<std::uint16_t>&) override { return false; }
  bool eraseSetImpl(const std::set<std::uint16_t>&) override { return false; }
  bool eraseImpl(std::uint16_t) override { return false; }
  void clearImpl() override {}
  bool emptyImpl() const override { return true; }
  bool existsImpl(std::uint16_t) const override { return false; }
  const std::uint8_t* getBinary() const override { return nullptr; }
  bool setBinaryImpl(const std::uint8_t*, std::uint32_t) override { return false; }
  std::uint32_t getSizeImpl() const override { return 0; }
  void getFieldIdsImpl(std::vector<std::uint16_t>& out) const override {
    out.insert(out.end(), ids.begin(), ids.end());
  }

 protected:
#define MD_SLOT(T, name, code)                                          \
  bool getImpl(std::uint16_t id, T&) const override {                   \
    const_cast<SlotRecorder*>(this)->lastCall = note("get " #name, id); \
    return result;                                                      \
  }                                                                     \
  bool addImpl(std::uint16_t id, T value) override {                    \
    lastCall = note("add " #name, id) + " " + rawOf(value);             \
    return result;                                                      \
  }                                                                     \
  bool updateImpl(std::uint16_t id, T value) override {                 \
    lastCall = note("update " #name, id) + " " + rawOf(value);          \
    return result;                                                      \
  }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

 private:
  static std::string note(const char* slot, std::uint16_t id) { return std::string(slot) + " " + std::to_string(id); }
};

class FrontEnd : public testing::Test {
 protected:
  FrontEnd() { loadDictionary(kDictionary); }

  SlotRecorder m_slots;
};

TEST_F(FrontEnd, ReachesTheSlotOfEachTypeAndReturnsItsResult) {
  for (const bool result : {true, false}) {
    m_slots.result = result;
    forEachValueType([&](auto value, const char* name) {
      SCOPED_TRACE(name);
      EXPECT_EQ(m_slots.get(17, value), result);
      EXPECT_EQ(m_slots.lastCall, std::string("get ") + name + " 17");
      for (const auto sample : samplesOf<decltype(value)>()) {
        EXPECT_EQ(m_slots.add(18, sample), result);
        EXPECT_EQ(m_slots.lastCall, std::string("add ") + name + " 18 " + rawOf(sample));
        EXPECT_EQ(m_slots.update(65535, sample), result);
        EXPECT_EQ(m_slots.lastCall, std::string("update ") + name + " 65535 " + rawOf(sample));
      }
    });
  }
}

struct StringForm {
  const char* name;
  bool (*call)(MD_Message&, const std::string&);
  const char* slot;
};

const StringForm kStringForms[] = {
    {"AddString16", [](MD_Message& m, const std::string& s) { return m.add(60, MD_Message::String(s)); }, "add"},
    {"AddStdString", [](MD_Message& m, const std::string& s) { return m.add(60, s); }, "add"},
    {"AddPointer", [](MD_Message& m, const std::string& s) { return m.add(60, s.c_str()); }, "add"},
    {"AddStringStdString", [](MD_Message& m, const std::string& s) { return m.addString(60, s); }, "add"},
    {"AddStringPointer", [](MD_Message& m, const std::string& s) { return m.addString(60, s.c_str()); }, "add"},
    {"AddStringPointerAndLength",
     [](MD_Message& m, const std::string& s) {
       return m.addString(60, s.data(), static_cast<std::uint16_t>(s.size()));
     },
     "add"},
    {"UpdateString16", [](MD_Message& m, const std::string& s) { return m.update(60, MD_Message::String(s)); },
     "update"},
    {"UpdateStdString", [](MD_Message& m, const std::string& s) { return m.update(60, s); }, "update"},
    {"UpdatePointer", [](MD_Message& m, const std::string& s) { return m.update(60, s.c_str()); }, "update"},
    {"UpdateStringStdString", [](MD_Message& m, const std::string& s) { return m.updateString(60, s); }, "update"},
    {"UpdateStringPointer", [](MD_Message& m, const std::string& s) { return m.updateString(60, s.c_str()); },
     "update"},
    {"UpdateStringPointerAndLength",
     [](MD_Message& m, const std::string& s) {
       return m.updateString(60, s.data(), static_cast<std::uint16_t>(s.size()));
     },
     "update"},
};

class StringForms : public testing::TestWithParam<StringForm> {
 protected:
  StringForms() { loadDictionary(kDictionary); }

  // What the slot was given by the form.
  std::string given(const std::string& text) {
    EXPECT_TRUE(GetParam().call(m_slots, text));
    const std::string prefix = std::string(GetParam().slot) + " String 60 ";
    EXPECT_EQ(m_slots.lastCall.substr(0, prefix.size()), prefix);
    return m_slots.lastCall.substr(prefix.size());
  }

  SlotRecorder m_slots;
};

TEST_P(StringForms, PassTheCharacters) {
  EXPECT_EQ(given("IBM"), "IBM");
  EXPECT_EQ(given(""), "");
}

TEST_P(StringForms, CutTheLengthTo16Bits) {
  std::string text(70000, 'a');
  text[0] = 'b';
  EXPECT_EQ(given(text), "b" + std::string(4463, 'a'));
  EXPECT_EQ(given(std::string(65535, 'a')).size(), 65535u);
  EXPECT_EQ(given(std::string(65536, 'a')).size(), 0u);
}

TEST_P(StringForms, ReturnTheSlotsResult) {
  m_slots.result = false;
  EXPECT_FALSE(GetParam().call(m_slots, "IBM"));
}

INSTANTIATE_TEST_SUITE_P(All, StringForms, testing::ValuesIn(kStringForms),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(FrontEnd, EmbeddedZeroCharactersEndOnlyTerminatedStrings) {
  const std::string text("a\0b", 3);
  m_slots.add(60, text);
  EXPECT_EQ(m_slots.lastCall, "add String 60 " + text);
  m_slots.addString(60, text.data(), 3);
  EXPECT_EQ(m_slots.lastCall, "add String 60 " + text);
  m_slots.add(60, text.c_str());
  EXPECT_EQ(m_slots.lastCall, "add String 60 a");
}

TEST_F(FrontEnd, NullTextReachesNoSlot) {
  const char* const none = nullptr;
  EXPECT_FALSE(m_slots.add(60, none));
  EXPECT_FALSE(m_slots.addString(60, none));
  EXPECT_FALSE(m_slots.update(60, none));
  EXPECT_FALSE(m_slots.updateString(60, none));
  EXPECT_EQ(m_slots.lastCall, "");
}

TEST_F(FrontEnd, A70000CharacterStringIsStoredAs4464Characters) {
  const std::string text(70000, 'a');
  for (const std::uint8_t code : {ENCODINGS::ITERMAP, ENCODINGS::MSGT}) {
    SCOPED_TRACE(int{code});
    const auto message = MD_Message::createFromPB(code);
    EXPECT_TRUE(message->add(id::kString, text));
    std::string stored;
    EXPECT_TRUE(message->get(id::kString, stored));
    EXPECT_EQ(stored, std::string(4464, 'a'));
  }
}

TEST_F(FrontEnd, BothNamesReadAStringIntoAStdString) {
  mInt message;
  message.add(id::kString, std::string("a\0b", 3));
  std::string text = "before";
  EXPECT_TRUE(message.get(id::kString, text));
  EXPECT_EQ(text, std::string("a\0b", 3));
  text = "before";
  EXPECT_TRUE(message.getString(id::kString, text));
  EXPECT_EQ(text, std::string("a\0b", 3));
}

TEST_F(FrontEnd, AnEmptyStringReplacesWhatTheStdStringHeld) {
  mInt message;
  message.add(id::kString, "");
  std::string text = "before";
  EXPECT_TRUE(message.get(id::kString, text));
  EXPECT_EQ(text, "");
}

TEST_F(FrontEnd, AFailedReadLeavesTheStdStringAsItWas) {
  mInt message;
  message.add(id::kInt, 5);
  std::string text = "before";
  for (const std::uint16_t id : {id::kString, id::kInt, id::kUnknown, id::kBeyond}) {
    SCOPED_TRACE(id);
    EXPECT_FALSE(message.get(id, text));
    EXPECT_FALSE(message.getString(id, text));
    EXPECT_EQ(text, "before");
  }
}

TEST_F(FrontEnd, ListsFieldIdsIntoAnEmptiedVector) {
  mInt message;
  message.add(id::kInt, 5);
  message.add(id::kChar, 'x');
  Ids ids = {1, 2, 3};
  message.get_field_ids(ids);
  EXPECT_EQ(ids, (Ids{id::kInt, id::kChar}));
  message.getFieldIdsImpl(ids);
  EXPECT_EQ(ids, (Ids{id::kInt, id::kChar, id::kInt, id::kChar}));
}

TEST_F(FrontEnd, CountsFields) {
  mInt message;
  EXPECT_EQ(message.fieldCount(), 0u);
  message.add(id::kInt, 5);
  message.add(id::kInt, 6);
  message.add(id::kUnknown, 6);
  message.update(id::kInt, 7);
  message.add(id::kChar, 'x');
  EXPECT_EQ(message.fieldCount(), 2u);
  message.eraseImpl(id::kInt);
  EXPECT_EQ(message.fieldCount(), 1u);
}

TEST_F(FrontEnd, PrintDoesNothing) {
  mInt message;
  message.add(id::kInt, 5);
  CapturedErrors errors;
  testing::internal::CaptureStdout();
  message.print();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(errors.take(), "");
}

static_assert(!std::is_copy_constructible_v<mInt> && !std::is_copy_assignable_v<mInt>);
static_assert(std::is_default_constructible_v<mInt> && std::has_virtual_destructor_v<MD_Message>);

TEST_F(FrontEnd, SwapExchangesContentsCountsAndMemory) {
  mInt a;
  mInt b;
  a.add(id::kInt, 5);
  a.add(id::kString, "IBM");
  b.add(id::kInt, 300);
  const std::string hexOfA = hexOf(a);
  const std::string hexOfB = hexOf(b);
  const std::uint8_t* const bytesOfA = a.getBinary();
  const std::uint8_t* const bytesOfB = b.getBinary();

  a.swap(b);

  EXPECT_EQ(a.fieldCount(), 1u);
  EXPECT_EQ(b.fieldCount(), 2u);
  EXPECT_EQ(hexOf(a), hexOfB);
  EXPECT_EQ(hexOf(b), hexOfA);
  EXPECT_EQ(a.getBinary(), bytesOfB);
  EXPECT_EQ(b.getBinary(), bytesOfA);
  EXPECT_FALSE(a.existsImpl(id::kString));
  std::string text;
  EXPECT_TRUE(b.get(id::kString, text));
  EXPECT_EQ(text, "IBM");

  a.swap(a);
  EXPECT_EQ(hexOf(a), hexOfB);
}

// The buffer that `pool` lends next, as an address.
const void* nextBuffer(const MD_Message::Allocator& pools) {
  return ReusableContainerWrapper<MsgData>(true, pools.first)->data();
}

TEST_F(FrontEnd, SwappedMemoryGoesBackToThePoolItCameFrom) {
  const auto pools = [] {
    return MD_Message::Allocator(std::make_shared<ReusableContainer<MsgData>>(),
                                 std::make_shared<ReusableContainer<Optimizer>>());
  };
  const MD_Message::Allocator poolsOfA = pools();
  const MD_Message::Allocator poolsOfB = pools();
  const Bytes bytes = fromHex("06 2C 01 01 05");
  auto a = MD_Message::createFromBytes(bytes.data(), 5, poolsOfA);
  auto b = MD_Message::createFromBytes(bytes.data(), 5, poolsOfB);
  const void* const bytesOfA = a->getBinary();
  const void* const bytesOfB = b->getBinary();

  a->swap(*b);
  a.reset();
  EXPECT_EQ(nextBuffer(poolsOfB), bytesOfB);
  b.reset();
  EXPECT_EQ(nextBuffer(poolsOfA), bytesOfA);
}

struct PrintErrorCase {
  const char* name;
  std::uint16_t id;
  std::uint8_t type;
  std::size_t sizeBytes;
  std::string text;
};

const PrintErrorCase kPrintErrorCases[] = {
    {"PrintableType", 7, 'A', 12, "  Field id:   7\n  Field type: A\n  Field size: 12\n"},
    {"UnprintableType", 65535, 6, 0, "  Field id:   65535\n  Field type: \x06\n  Field size: 0\n"},
    {"ZeroType", 0, 0, 255, "  Field id:   0\n  Field type: "s + '\0' + "\n  Field size: 255\n"},
    {"LargeSize", 300, 255, 4294967295u, "  Field id:   300\n  Field type: \xFF\n  Field size: 4294967295\n"},
};

TEST_F(FrontEnd, PrintErrorWritesIdRawTypeByteAndSize) {
  for (const PrintErrorCase& row : kPrintErrorCases) {
    SCOPED_TRACE(row.name);
    CapturedErrors errors;
    m_slots.printError(row.id, row.type, row.sizeBytes);
    EXPECT_EQ(errors.take(), row.text);
  }
}

class Iteration : public testing::Test {
 protected:
  Iteration() { loadDictionary(kDictionary); }

  mInt m_message;
};

TEST_F(Iteration, AnEmptyMessageIsAtItsEnd) {
  EXPECT_TRUE(m_message.begin() == m_message.end());
  EXPECT_FALSE(m_message.begin() != m_message.end());
  EXPECT_EQ(m_message.begin().id(), 65535);
  EXPECT_EQ(m_message.begin().value(), MD_Variant());
}

TEST_F(Iteration, UnpacksIdsAndValuesInWireOrder) {
  m_message.add(id::kString, "IBM");
  m_message.add(id::kInt, -5);
  m_message.add(id::kDouble, 1.25);
  std::vector<std::pair<std::uint16_t, MD_Variant>> seen;
  for (const auto& [id, value] : m_message) {
    static_assert(std::is_same_v<decltype(id), const std::uint16_t>);
    static_assert(std::is_same_v<decltype(value), const MD_Variant>);
    seen.emplace_back(id, value);
  }
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen[0].first, id::kString);
  EXPECT_EQ(seen[0].second, MD_Variant("IBM"));
  EXPECT_EQ(seen[1].first, id::kInt);
  EXPECT_EQ(seen[1].second, MD_Variant(-5));
  EXPECT_EQ(seen[2].first, id::kDouble);
  EXPECT_EQ(seen[2].second, MD_Variant(1.25));
}

TEST_F(Iteration, GivesAValueOfEachType) {
  forEachValueType([&](auto value, const char* name) {
    SCOPED_TRACE(name);
    using T = decltype(value);
    mInt message;
    const T sample = samplesOf<T>().front();
    ASSERT_TRUE(message.add(fieldOf<T>(), sample));
    const auto field = message.begin();
    EXPECT_EQ(field.id(), fieldOf<T>());
    EXPECT_EQ(field.value().type(), std::uint32_t{detail::kTypeCode<T>});
    EXPECT_EQ(rawOf(field.value().template get<T>()), rawOf(sample));
    EXPECT_TRUE(std::next(field) == message.end());
  });
}

TEST_F(Iteration, IsAForwardIterator) {
  using Iterator = MD_Message::const_iterator;
  static_assert(std::is_same_v<std::iterator_traits<Iterator>::iterator_category, std::forward_iterator_tag>);
  static_assert(std::is_default_constructible_v<Iterator> && std::is_copy_assignable_v<Iterator>);
  EXPECT_TRUE(Iterator() == Iterator());

  m_message.add(id::kInt, 1);
  m_message.add(id::kInt2, 2);
  EXPECT_EQ(std::distance(m_message.begin(), m_message.end()), 2);
  const auto found = std::find_if(m_message.begin(), m_message.end(), [](const auto& f) { return f.id == id::kInt2; });
  ASSERT_TRUE(found != m_message.end());
  EXPECT_EQ(found->value, MD_Variant(2));
  EXPECT_EQ((*found).id, id::kInt2);
  EXPECT_EQ(found.id(), id::kInt2);
}

TEST_F(Iteration, CopiesAdvanceOnTheirOwn) {
  m_message.add(id::kInt, 1);
  m_message.add(id::kInt2, 2);
  auto first = m_message.begin();
  auto copy = first;
  EXPECT_TRUE(copy == first);
  EXPECT_TRUE(&++copy == &copy);
  EXPECT_TRUE(copy != first);
  EXPECT_EQ(first.value(), MD_Variant(1));
  EXPECT_EQ(copy.value(), MD_Variant(2));

  const auto before = copy++;
  EXPECT_EQ(before.id(), id::kInt2);
  EXPECT_EQ(before.value(), MD_Variant(2));
  EXPECT_TRUE(copy == m_message.end());
  EXPECT_TRUE(before != copy);

  ++first;
  EXPECT_TRUE(first == before);
  first = m_message.begin();
  EXPECT_EQ(first.value(), MD_Variant(1));
}

TEST_F(Iteration, AdvancingBehindTheEndStaysThere) {
  m_message.add(id::kInt, 1);
  auto field = m_message.begin();
  ++field;
  ++field;
  field++;
  EXPECT_TRUE(field == m_message.end());
  EXPECT_EQ(field.id(), 65535);
  EXPECT_TRUE(field.value().empty());
}

TEST_F(Iteration, TellsMessagesAndRepeatedIdsApart) {
  mInt other;
  m_message.add(id::kInt, 1);
  other.add(id::kInt, 1);
  EXPECT_TRUE(m_message.begin() != other.begin());
  EXPECT_TRUE(m_message.end() != other.end());

  const auto repeated = parse<mInt>(fromHex("06 2C 01 01 05 2C 01 01 06"));
  const auto first = repeated->begin();
  EXPECT_TRUE(std::next(first) != first);
  EXPECT_EQ(std::distance(first, repeated->end()), 2);
}

TEST_F(Iteration, ValuesOutliveTheMessage) {
  MD_Variant value;
  {
    mInt message;
    message.add(id::kString, "IBM");
    value = message.begin().value();
  }
  EXPECT_EQ(value.get<std::string>(), "IBM");
}

TEST_F(Iteration, Field65535EndsTheWalk) {
  loadDictionary("FIRST 1 INT\nLAST 65535 INT\nTHIRD 3 INT\n");
  mInt message;
  EXPECT_TRUE(message.add(1, 10));
  EXPECT_TRUE(message.add(65535, 20));
  EXPECT_TRUE(message.add(3, 30));
  int value = 0;
  EXPECT_TRUE(message.get(65535, value));
  EXPECT_EQ(value, 20);
  EXPECT_EQ(message.fieldCount(), 3u);
  EXPECT_EQ(idsOf(message), (Ids{1, 65535, 3}));
  EXPECT_EQ(std::distance(message.begin(), message.end()), 1);

  mInt only;
  only.add(65535, 20);
  EXPECT_TRUE(only.begin() == only.end());
}

TEST_F(Iteration, AFieldThatCannotBeReadIsAssertedAgainst) {
  const auto truncated = parse<mInt>(fromHex("06 2C 01 01 05 3C 00 09 41 42"));
  const RecordedAssertions assertions;
  auto field = truncated->begin();
  EXPECT_EQ(assertions.entries().size(), 0u);
  EXPECT_EQ(field.value(), MD_Variant(5));
  ++field;
  ASSERT_EQ(assertions.entries().size(), 1u);
  const std::string entry = assertions.entries().front();
  EXPECT_EQ(entry.substr(0, 26), "md_message/src/md_message:");
  EXPECT_EQ(entry.substr(entry.size() - 11), ": b == true");
  EXPECT_EQ(field.id(), id::kString);
  EXPECT_TRUE(field.value().empty());
  ++field;
  EXPECT_TRUE(field == truncated->end());
  EXPECT_EQ(assertions.entries().size(), 1u);
}

TEST_F(Iteration, AFieldOfATypeThatMessagesDoNotCarryIsAssertedAgainst) {
  const auto message = parse<mInt>(fromHex("06 C8 00 02 01 02"));
  const RecordedAssertions assertions;
  const auto field = message->begin();
  EXPECT_EQ(field.id(), id::kShort);
  EXPECT_TRUE(field.value().empty());
  ASSERT_EQ(assertions.entries().size(), 2u);
  EXPECT_EQ(assertions.entries()[0], "md_message/src/md_message:177: 0");
}

using IterationDeathTest = Iteration;

TEST_F(IterationDeathTest, StopsAtAFieldThatCannotBeRead) {
  const auto truncated = parse<mInt>(fromHex("06 3C 00 09 41 42"));
  EXPECT_DEATH(truncated->begin(), "b == true");
}

class PrintOut : public testing::Test {
 protected:
  PrintOut() { loadDictionary(kDictionary); }

  static std::string printed(const MD_Message& message) {
    std::ostringstream out;
    out << message;
    return out.str();
  }
};

TEST_F(PrintOut, AnEmptyMessagePrintsNothing) { EXPECT_EQ(printed(mInt()), ""); }

template <class Encoding>
class PrintOutOf : public PrintOut {};

using Encodings = testing::Types<mInt, IterMap, MsgT>;
TYPED_TEST_SUITE(PrintOutOf, Encodings, );

TYPED_TEST(PrintOutOf, HasALineAFieldInWireOrder) {
  TypeParam message;
  message.add(id::kString, "IBM");
  message.add(id::kChar, 'x');
  message.add(id::kInt, -42);
  message.add(id::kInt64, std::int64_t{9000000000});
  message.add(id::kFloat, 1.5f);
  message.add(id::kDouble, 123.456);
  message.add(id::kBuffer, bufferOf("raw"));
  message.add(id::kBuffer2, bufferOf(""));
  message.add(id::kDateTime, MD_DateTime(20240115, 93000000, -300));
  message.add(id::kEpochNS, MD_EpochNS(18446744073709551615u));
  message.add(id::kOptiPrice, 7);
  EXPECT_EQ(this->printed(message),
            "SYMBOL                 = IBM\n"
            "CH                     = x\n"
            "QTY                    = -42\n"
            "SEQ                    = 9000000000\n"
            "VOLA                   = 1.5\n"
            "BID                    = 123.456\n"
            "BLOB                   = raw\n"
            "BLOB2                  = <BUFFER>\n"
            "WHEN                   = 20240115 93000000 (-300)\n"
            "RECV                   = 18446744073709551615\n"
            "TICK                   = 7\n");
}

TEST_F(PrintOut, NamesFillAColumnOf22Characters) {
  loadDictionary(
      "A23456789012345678901 21 INT\n"
      "A234567890123456789012 22 INT\n"
      "A2345678901234567890123 23 INT\n");
  mInt message;
  message.add(21, 1);
  message.add(22, 2);
  message.add(23, 3);
  EXPECT_EQ(printed(message),
            "A23456789012345678901  = 1\n"
            "A234567890123456789012 = 2\n"
            "A2345678901234567890123 = 3\n");
}

TEST_F(PrintOut, AnIdThatTheDictionaryHasLostPrintsAsANumber) {
  loadDictionary("QTY 300 INT\nSYMBOL 60 STRING\n");
  MsgT message;
  message.add(id::kInt, 5);
  message.add(id::kString, "IBM");
  loadDictionary("QTY 300 INT\n");
  const RecordedAssertions assertions;
  EXPECT_EQ(printed(message),
            "QTY                    = 5\n"
            "60                     = <VARIANT>\n");
  EXPECT_EQ(assertions.entries().size(), 1u);
}

TEST_F(PrintOut, ReturnsItsStream) {
  std::ostringstream out;
  EXPECT_EQ(&(out << mInt()), &out);
}

TEST_F(PrintOut, LeavesTheStreamAsItWasFound) {
  mInt message;
  message.add(id::kInt, 255);
  message.add(id::kString, "IBM");
  std::ostringstream out;
  out << std::right << std::hex << std::showbase << std::setfill('*') << std::setw(40) << std::setprecision(3);
  const auto flags = out.flags();
  out << message;
  EXPECT_EQ(out.flags(), flags);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.precision(), 3);
}

TEST_F(PrintOut, WidthAndFillOfTheStreamPadNoPartOfIt) {
  mInt message;
  message.add(id::kInt, 255);
  message.add(id::kString, "IBM");
  std::ostringstream out;
  out << std::right << std::setfill('*') << std::setw(40) << message;
  EXPECT_EQ(out.str(),
            "QTY                    = 255\n"
            "SYMBOL                 = IBM\n");
}

TEST_F(PrintOut, AnExceptionOfTheStreamLeavesItAsItWasFound) {
  const auto truncated = parse<mInt>(fromHex("06 2C 01 01 05 3C 00 09 41 42"));
  std::ostringstream out;
  out << std::right << std::setfill('*') << std::setw(9);
  const AssertionHandler previous = set_assertion_handler([](const char*, const char*, unsigned) { throw 1; });
  EXPECT_THROW(out << *truncated, int);
  set_assertion_handler(previous);
  EXPECT_EQ(out.fill(), '*');
  EXPECT_EQ(out.width(), 0);
  EXPECT_EQ(out.flags() & std::ios::adjustfield, std::ios::right);
}

}  // namespace
}  // namespace MD::test
