#include "base/quoted_text.h"

#include <cstddef>

#include <algorithm>

#include "base/utf8.h"
#include "md/md_escape.h"

namespace MD::tool {
namespace {

constexpr std::size_t kLongestQuote = 200;

}  // namespace

std::string printable(std::string_view text) {
  const bool isCut = text.size() > kLongestQuote;
  if (isCut) {
    text = text.substr(0, kLongestQuote);
    // A character split by the limit counts as skipped.
    for (int i = 0; i < 3 && !text.empty() && !isUtf8(text); ++i) {
      text.remove_suffix(1);
    }
  }
  std::string out = escaped(text);
  if (isCut) {
    out += "...";
  }
  return out;
}

std::string pathText(std::string_view path) {
#if defined(_WIN32)
  return harmless(path);
#else
  return escaped(path);
#endif
}

std::string harmless(std::string_view report) {
  std::string out;
  for (;;) {
    const std::size_t backslash = std::min(report.find('\\'), report.size());
    appendEscaped(report.substr(0, backslash), out);
    if (backslash == report.size()) {
      return out;
    }
    out += '\\';
    report.remove_prefix(backslash + 1);
  }
}

std::string inQuotes(std::string_view text) { return '"' + printable(text) + '"'; }

std::string counted(std::uint64_t number, const char* one, const char* many) {
  return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

std::string counted(std::uint64_t number, const std::string& one) {
  return counted(number, one.c_str(), (one + 's').c_str());
}

}  // namespace MD::tool
