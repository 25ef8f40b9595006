#include "base/encodings.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "base/hex.h"

namespace MD::tool {

std::uint8_t encodingCode(std::string_view name) noexcept {
  for (const auto& encoding : ENCODINGS::kAll) {
    if (encoding.name == name) {
      return encoding.code;
    }
  }
  return 0;
}

std::string encodingList() {
  std::vector<ENCODINGS::Encoding> encodings(std::begin(ENCODINGS::kAll), std::end(ENCODINGS::kAll));
  std::sort(encodings.begin(), encodings.end(), [](const auto& a, const auto& b) { return a.code < b.code; });
  std::string list;
  for (const auto& [code, name] : encodings) {
    list += list.empty() ? "" : ", ";
    appendHex(&code, 1, list);
    list.append(" ").append(name);
  }
  return list;
}

}  // namespace MD::tool
