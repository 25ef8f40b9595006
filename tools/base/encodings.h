// The encodings by their names.
#ifndef MDMSG_ENCODINGS_H
#define MDMSG_ENCODINGS_H

#include <cstdint>

#include <string>
#include <string_view>

#include "md/md_datatypes.h"

namespace MD::tool {

/// The name of the encoding with this code, null when there is none.
inline const char* encodingName(std::uint8_t code) noexcept {
  for (const auto& encoding : ENCODINGS::kAll) {
    if (encoding.code == code) {
      return encoding.name;
    }
  }
  return nullptr;
}

/// The code of the encoding of this name, 0 when there is none.
std::uint8_t encodingCode(std::string_view name) noexcept;

/// "01 IterMap, 06 mInt, 46 MsgT", for reports.
std::string encodingList();

}  // namespace MD::tool

#endif
