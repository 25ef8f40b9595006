// The bytes of a field in each encoding: the one table that pins the three wire formats.
#ifndef MD_TESTS_SUPPORT_GOLDEN_RECORDS_H
#define MD_TESTS_SUPPORT_GOLDEN_RECORDS_H

#include <cstdint>

#include <initializer_list>
#include <limits>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>

#include "md/md_datatypes.h"
#include "md/md_message.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {

using GoldenValue = std::variant<char, std::int32_t, std::int64_t, float, double, MD_Message::String,
                                 MD_Message::Buffer, MD_DateTime, MD_EpochNS>;

struct GoldenRecord {
  const char* name;
  std::uint16_t id;  ///< in kDictionary
  GoldenValue value;
  const char* mInt;
  const char* iterMap;
  const char* msgT;

  const char* in(std::uint8_t code) const {
    return code == ENCODINGS::MINT ? mInt : code == ENCODINGS::ITERMAP ? iterMap : msgT;
  }
};

inline void PrintTo(const GoldenRecord& record, std::ostream* out) { *out << record.name; }

inline const GoldenRecord kGoldenRecords[] = {
    {"Char", id::kChar, 'A', "0A 00 01 41", "0A 00 41", "00 0A 00 01 00 00 00 01 41"},
    {"CharOfHighBit", id::kChar2, '\xFF', "0B 00 01 FF", "0B 00 FF", "00 0B 00 01 00 00 00 01 FF"},
    {"IntZero", id::kInt, 0, "2C 01 01 00", "2C 01 00 00 00 00", "01 2C 00 02 00 00 00 04 00 00 00 00"},
    {"IntFive", id::kInt, 5, "2C 01 01 05", "2C 01 05 00 00 00", "01 2C 00 02 00 00 00 04 00 00 00 05"},
    {"IntLastInOneByte", id::kInt, 127, "2C 01 01 7F", "2C 01 7F 00 00 00", "01 2C 00 02 00 00 00 04 00 00 00 7F"},
    {"IntFirstInTwoBytes", id::kInt, 128, "2C 01 02 80 00", "2C 01 80 00 00 00", "01 2C 00 02 00 00 00 04 00 00 00 80"},
    {"IntByteOverflow", id::kInt, 256, "2C 01 02 00 01", "2C 01 00 01 00 00", "01 2C 00 02 00 00 00 04 00 00 01 00"},
    {"IntLastInTwoBytes", id::kInt, 32767, "2C 01 02 FF 7F", "2C 01 FF 7F 00 00",
     "01 2C 00 02 00 00 00 04 00 00 7F FF"},
    {"IntFirstInFourBytes", id::kInt, 32768, "2C 01 04 00 80 00 00", "2C 01 00 80 00 00",
     "01 2C 00 02 00 00 00 04 00 00 80 00"},
    {"IntHundredThousand", id::kInt, 100000, "2C 01 04 A0 86 01 00", "2C 01 A0 86 01 00",
     "01 2C 00 02 00 00 00 04 00 01 86 A0"},
    {"IntLargest", id::kInt, std::numeric_limits<std::int32_t>::max(), "2C 01 04 FF FF FF 7F", "2C 01 FF FF FF 7F",
     "01 2C 00 02 00 00 00 04 7F FF FF FF"},
    {"IntMinusOne", id::kInt, -1, "2C 01 04 FF FF FF FF", "2C 01 FF FF FF FF", "01 2C 00 02 00 00 00 04 FF FF FF FF"},
    {"IntMinus128", id::kInt, -128, "2C 01 04 80 FF FF FF", "2C 01 80 FF FF FF", "01 2C 00 02 00 00 00 04 FF FF FF 80"},
    {"IntSmallest", id::kInt, std::numeric_limits<std::int32_t>::min(), "2C 01 04 00 00 00 80", "2C 01 00 00 00 80",
     "01 2C 00 02 00 00 00 04 80 00 00 00"},
    {"IntOfAHighId", id::kHigh, 200, "40 9C 02 C8 00", "40 9C C8 00 00 00", "9C 40 00 02 00 00 00 04 00 00 00 C8"},
    {"OptiPrice", id::kOptiPrice, 5, "64 00 01 05", "64 00 05 00 00 00", "00 64 00 02 00 00 00 04 00 00 00 05"},
    {"Int64", id::kInt64, std::int64_t{-2}, "14 00 08 FE FF FF FF FF FF FF FF", "14 00 FE FF FF FF FF FF FF FF",
     "00 14 00 13 00 00 00 08 FF FF FF FF FF FF FF FE"},
    {"Int64OfAllBytes", id::kInt64b, std::int64_t{0x0102030405060708}, "15 00 08 08 07 06 05 04 03 02 01",
     "15 00 08 07 06 05 04 03 02 01", "00 15 00 13 00 00 00 08 01 02 03 04 05 06 07 08"},
    {"Float", id::kFloat, 1.5F, "28 00 04 00 00 C0 3F", "28 00 00 00 C0 3F", "00 28 00 04 00 00 00 04 3F C0 00 00"},
    {"Double", id::kDouble, 1.25, "16 00 08 00 00 00 00 00 00 F4 3F", "16 00 00 00 00 00 00 00 F4 3F",
     "00 16 00 05 00 00 00 08 3F F4 00 00 00 00 00 00"},
    {"DoubleNegative", id::kDouble2, -1.25, "17 00 08 00 00 00 00 00 00 F4 BF", "17 00 00 00 00 00 00 00 F4 BF",
     "00 17 00 05 00 00 00 08 BF F4 00 00 00 00 00 00"},
    {"String", id::kString, std::string_view("AB"), "3C 00 03 41 42 00", "3C 00 03 00 41 42 00",
     "00 3C 00 06 00 00 00 03 41 42 00"},
    {"StringIbm", id::kString, std::string_view("IBM"), "3C 00 04 49 42 4D 00", "3C 00 04 00 49 42 4D 00",
     "00 3C 00 06 00 00 00 04 49 42 4D 00"},
    {"StringEmpty", id::kString2, std::string_view(""), "3D 00 01 00", "3D 00 01 00 00", "00 3D 00 06 00 00 00 01 00"},
    {"StringWithNul", id::kString, std::string_view("a\0b", 3), "3C 00 04 61 00 62 00", "3C 00 04 00 61 00 62 00",
     "00 3C 00 06 00 00 00 04 61 00 62 00"},
    {"Buffer", id::kBuffer, bufferOf({"\x00\xFF\x80", 3}), "46 00 03 00 FF 80", "46 00 03 00 00 00 00 FF 80",
     "00 46 00 0E 00 00 00 03 00 FF 80"},
    {"BufferEmpty", id::kBuffer2, bufferOf(""), "47 00 00", "47 00 00 00 00 00", "00 47 00 0E 00 00 00 00"},
    {"DateTime", id::kDateTime, MD_DateTime(20240115, 93000000, -300), "50 00 08 40 11 8B F5 82 8F DA FF",
     "50 00 40 11 8B F5 82 8F DA FF", "00 50 00 14 00 00 00 08 40 11 8B F5 82 8F DA FF"},
    {"EpochNS", id::kEpochNS, MD_EpochNS(0x0102030405060708), "5A 00 08 08 07 06 05 04 03 02 01",
     "5A 00 08 07 06 05 04 03 02 01", "00 5A 00 16 00 00 00 08 08 07 06 05 04 03 02 01"},
};

/// The bytes of an empty message.
inline const char* goldenHeader(std::uint8_t code) {
  return code == ENCODINGS::MINT ? "06" : code == ENCODINGS::ITERMAP ? "01" : "46 51 52 31";
}

inline const GoldenRecord& goldenRecord(std::string_view name) {
  for (const GoldenRecord& record : kGoldenRecords) {
    if (record.name == name) {
      return record;
    }
  }
  throw std::logic_error("no golden record " + std::string(name));
}

/// The bytes of a message of the named records.
inline std::string goldenMessage(std::uint8_t code, std::initializer_list<std::string_view> names) {
  std::string hex = goldenHeader(code);
  for (const std::string_view name : names) {
    hex += std::string(" ") + goldenRecord(name).in(code);
  }
  return hex;
}

/// The bytes of a message of a field of each type.
inline std::string goldenMessageOfAllTypes(std::uint8_t code) {
  return goldenMessage(code,
                       {"Char", "IntFive", "Int64", "Float", "Double", "String", "Buffer", "DateTime", "EpochNS"});
}

}  // namespace MD::test

#endif
