#include "base/hex.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using MD::tool::appendHex;
using MD::tool::hexNumber;

TEST(Hex, IsWrittenInLowerCaseBehindWhatIsThere) {
  const std::vector<std::uint8_t> bytes{0x00, 0x0f, 0xa5, 0xff};
  std::string text = "x";
  appendHex(bytes.data(), bytes.size(), text);
  EXPECT_EQ(text, "x000fa5ff");
  appendHex(nullptr, 0, text);
  EXPECT_EQ(text, "x000fa5ff");
}

TEST(Hex, NumbersHaveAllTheirDigits) {
  EXPECT_EQ(hexNumber(0), "0x0000000000000000");
  EXPECT_EQ(hexNumber(0x0123456789abcdef), "0x0123456789abcdef");
}

}  // namespace
