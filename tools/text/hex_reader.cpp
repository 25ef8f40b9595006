#include "text/hex_reader.h"

#include <array>
#include <string>

#include "base/errors.h"
#include "base/quoted_text.h"

namespace MD::tool {
namespace {

constexpr std::uint16_t kNoDigit = 0x100;

/// By character: the value of the digit times `factor`, kNoDigit for any other character.
constexpr std::array<std::uint16_t, 256> makeDigits(std::uint16_t factor) {
  std::array<std::uint16_t, 256> digits{};
  for (auto& digit : digits) {
    digit = kNoDigit;
  }
  for (std::uint16_t i = 0; i < 10; ++i) {
    digits['0' + std::size_t{i}] = static_cast<std::uint16_t>(factor * i);
  }
  for (std::uint16_t i = 0; i < 6; ++i) {
    digits['a' + std::size_t{i}] = digits['A' + std::size_t{i}] = static_cast<std::uint16_t>(factor * (10 + i));
  }
  return digits;
}

constexpr std::array<std::uint16_t, 256> kHighDigits = makeDigits(16);
constexpr std::array<std::uint16_t, 256> kLowDigits = makeDigits(1);

/// The byte that two characters spell, with kNoDigit in it where they do not.
std::uint16_t byteAt(const char* text) noexcept {
  return static_cast<std::uint16_t>(kHighDigits[static_cast<std::uint8_t>(text[0])] |
                                    kLowDigits[static_cast<std::uint8_t>(text[1])]);
}

bool isDigit(char c) noexcept { return kLowDigits[static_cast<std::uint8_t>(c)] != kNoDigit; }

/// Reads bytes by eights as long as all of their characters are digits. @return the number of characters read
std::size_t readEights(std::string_view text, std::uint8_t* to) noexcept {
  constexpr std::size_t kBytes = 8;
  std::size_t i = 0;
  for (; text.size() - i >= 2 * kBytes; i += 2 * kBytes, to += kBytes) {
    std::uint16_t all = 0;
    for (std::size_t j = 0; j != kBytes; ++j) {
      const std::uint16_t byte = byteAt(text.data() + i + 2 * j);
      to[j] = static_cast<std::uint8_t>(byte);
      all = static_cast<std::uint16_t>(all | byte);
    }
    if ((all & kNoDigit) != 0) {
      break;
    }
  }
  return i;
}

bool isBlank(char c) noexcept { return c == ' ' || c == '\t'; }

std::string inColumn(std::size_t index) { return "column " + std::to_string(index + 1) + ": "; }

}  // namespace

void parseHex(std::string_view text, Blanks blanks, std::vector<std::uint8_t>& out) {
  out.resize(text.size() / 2);
  std::size_t i = readEights(text, out.data());
  std::uint8_t* to = out.data() + i / 2;
  while (i != text.size()) {
    for (; i + 1 < text.size(); i += 2) {
      const std::uint16_t byte = byteAt(text.data() + i);
      if ((byte & kNoDigit) != 0) {
        break;
      }
      *to++ = static_cast<std::uint8_t>(byte);
    }
    if (i == text.size()) {
      break;
    }
    if (blanks == Blanks::BetweenBytes && isBlank(text[i])) {
      ++i;
      continue;
    }
    const bool startsByte = isDigit(text[i]);
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
