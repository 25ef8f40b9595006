#include "text/hex_reader.h"

#include <array>
#include <string>

#include "base/errors.h"
#include "base/quoted_text.h"

namespace MD::tool {
namespace {

constexpr std::uint8_t kNoDigit = 0x80;

constexpr std::array<std::uint8_t, 256> makeDigits() {
  std::array<std::uint8_t, 256> digits{};
  for (auto& digit : digits) {
    digit = kNoDigit;
  }
  for (std::uint8_t i = 0; i < 10; ++i) {
    digits['0' + std::size_t{i}] = i;
  }
  for (std::uint8_t i = 0; i < 6; ++i) {
    digits['a' + std::size_t{i}] = digits['A' + std::size_t{i}] = static_cast<std::uint8_t>(10 + i);
  }
  return digits;
}

constexpr std::array<std::uint8_t, 256> kDigits = makeDigits();

std::uint8_t digitOf(char c) noexcept { return kDigits[static_cast<std::uint8_t>(c)]; }

bool isBlank(char c) noexcept { return c == ' ' || c == '\t'; }

std::string inColumn(std::size_t index) { return "column " + std::to_string(index + 1) + ": "; }

}  // namespace

void parseHex(std::string_view text, Blanks blanks, std::vector<std::uint8_t>& out) {
  out.resize(text.size() / 2);
  std::uint8_t* to = out.data();
  std::size_t i = 0;
  while (i != text.size()) {
    for (; i + 1 < text.size(); i += 2) {
      const std::uint8_t high = digitOf(text[i]);
      const std::uint8_t low = digitOf(text[i + 1]);
      if (((high | low) & kNoDigit) != 0) {
        break;
      }
      *to++ = static_cast<std::uint8_t>(high << 4 | low);
    }
    if (i == text.size()) {
      break;
    }
    if (blanks == Blanks::BetweenBytes && isBlank(text[i])) {
      ++i;
      continue;
    }
    const bool startsByte = digitOf(text[i]) != kNoDigit;
    if (startsByte && i + 1 == text.size()) {
      throw LineError(inColumn(i) + "odd number of hex digits, the last byte is incomplete");
    }
    if (startsByte && isBlank(text[i + 1])) {
      throw LineError(inColumn(i + 1) + "space within a byte");
    }
    const std::size_t wrong = startsByte ? i + 1 : i;
    throw LineError(inColumn(wrong) + inQuotes(text.substr(wrong, 1)) + " is not a hex digit");
  }
  out.resize(static_cast<std::size_t>(to - out.data()));
}

}  // namespace MD::tool
