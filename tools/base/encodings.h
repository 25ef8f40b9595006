// The encodings by their names.
#ifndef MDMSG_ENCODINGS_H
#define MDMSG_ENCODINGS_H

#include <cstdint>

#include <array>
#include <iterator>
#include <string>
#include <string_view>

#include "md/md_datatypes.h"

namespace MD::tool {

/// The places of the encodings in ENCODINGS::kAll by their codes; for all other codes its size. A table, because the
/// encodings of a feed may follow no order that a processor could predict.
inline constexpr std::array<std::uint8_t, 256> kEncodingIndices = [] {
  std::array<std::uint8_t, 256> indices{};
  for (std::uint8_t& index : indices) {
    index = std::size(ENCODINGS::kAll);
  }
  for (std::uint8_t i = 0; i != std::size(ENCODINGS::kAll); ++i) {
    indices[ENCODINGS::kAll[i].code] = i;
  }
  return indices;
}();

/// Whether an encoding has this code.
inline bool isEncoding(std::uint8_t code) noexcept { return kEncodingIndices[code] != std::size(ENCODINGS::kAll); }

/// The name of the encoding with this code, null when there is none.
inline const char* encodingName(std::uint8_t code) noexcept {
  return isEncoding(code) ? ENCODINGS::kAll[kEncodingIndices[code]].name : nullptr;
}

/// The code of the encoding of this name, 0 when there is none.
std::uint8_t encodingCode(std::string_view name) noexcept;

/// "01 IterMap, 06 mInt, 46 MsgT", for reports.
std::string encodingList();

}  // namespace MD::tool

#endif
