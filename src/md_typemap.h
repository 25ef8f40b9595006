// The types of fields: their names in dictionary files, their codes and their widths.
#ifndef MD_SRC_TYPEMAP_H
#define MD_SRC_TYPEMAP_H

#include <cstdint>

#include <array>
#include <string_view>

#include "md/md_datatypes.h"

namespace MD::detail {

struct FieldType {
  std::string_view name;
  std::uint8_t code;        ///< a `DATATYPES` code
  std::uint8_t widthBytes;  ///< 0 for a variable or composite width
};

inline constexpr FieldType kFieldTypes[] = {
    {"RAW", DATATYPES::RAW, 0},
    {"CHAR", DATATYPES::CHAR, 1},
    {"INT", DATATYPES::INT, 4},
    {"SHORT", DATATYPES::SHORT, 2},
    {"FLOAT", DATATYPES::FLOAT, 4},
    {"DOUBLE", DATATYPES::DOUBLE, 8},
    {"STRING", DATATYPES::STRING, 0},
    {"VECTOR", DATATYPES::VECTOR, 0},
    {"MSG_T", DATATYPES::MSG_T, 0},
    {"DATE", DATATYPES::DATE, 4},
    {"TIME", DATATYPES::TIME, 4},
    {"FRACTION", DATATYPES::FRACTION, 12},
    {"CHILD_MSG", DATATYPES::CHILD_MSG, 0},
    {"FOLDED_INT", DATATYPES::FOLDED_INT, 0},
    {"BUFFER", DATATYPES::BUFFER, 0},
    {"OPTI_PRICE", DATATYPES::OPTI_PRICE, 4},
    {"UINT", DATATYPES::UINT, 4},
    {"LONG_INT", DATATYPES::LONG_INT, 4},
    {"ULONG_INT", DATATYPES::ULONG_INT, 4},
    {"INT64", DATATYPES::INT64, 8},
    {"DATETIME", DATATYPES::DATETIME, 8},
    {"EPOCH_NSEC", DATATYPES::EPOCH_NSEC, 8},
};

/// The type called `name`, matched exactly; null for a name that no type has.
constexpr const FieldType* findType(std::string_view name) noexcept {
  for (const FieldType& type : kFieldTypes) {
    if (type.name == name) {
      return &type;
    }
  }
  return nullptr;
}

/// The first type with this code; null for a code that no type has.
constexpr const FieldType* findType(std::uint8_t code) noexcept {
  for (const FieldType& type : kFieldTypes) {
    if (type.code == code) {
      return &type;
    }
  }
  return nullptr;
}

/// The widths of `IterMap` values by type code: those of the types, and one for code 15, which no type has.
inline constexpr std::array<std::uint8_t, 24> kIterMapWidths = [] {
  std::array<std::uint8_t, 24> widths{};
  for (const FieldType& type : kFieldTypes) {
    widths[type.code] = type.widthBytes;
  }
  widths[15] = 4;
  return widths;
}();

}  // namespace MD::detail

#endif
