#include "md/md_value_types.h"

#include <cstddef>
#include <cstdint>

#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>

#include <gtest/gtest.h>

#include "md/md_message.h"

namespace MD {
namespace {

using String = MD_Message::String;
using Buffer = MD_Message::Buffer;

TEST(StringView, IsLaidOutAsPointerAndLength) {
  struct Expected {
    const char* data;
    std::uint16_t length;
  };
  static_assert(std::is_standard_layout_v<String>);
  static_assert(sizeof(String) == sizeof(Expected));
  static_assert(offsetof(String, data) == 0);
  static_assert(offsetof(String, length) == offsetof(Expected, length));
  EXPECT_EQ(String().data, nullptr);
  EXPECT_EQ(String().length, 0);
}

TEST(StringView, IsMadeFromPointerAndLengthOrText) {
  const char text[] = "abcdef";
  const String part(text, 3);
  EXPECT_EQ(part.data, text);
  EXPECT_EQ(part.length, 3);

  const std::string owned("ab\0cd", 5);
  const String whole(owned);
  EXPECT_EQ(whole.data, owned.data());
  EXPECT_EQ(whole.length, 5);

  const std::string_view view(text + 1, 2);
  const String ofView(view);
  EXPECT_EQ(ofView.data, text + 1);
  EXPECT_EQ(ofView.length, 2);
}

TEST(StringView, CutsTheLengthToSixteenBits) {
  EXPECT_EQ(String(std::string(65'535, 'x')).length, 65'535);
  EXPECT_EQ(String(std::string(65'536, 'x')).length, 0);
  EXPECT_EQ(String(std::string(70'000, 'x')).length, 4'464);
}

TEST(StringView, ConvertsToTheStandardView) {
  const std::string_view view = String("abcdef", 4);
  EXPECT_EQ(view, "abcd");
}

TEST(BufferView, IsLaidOutAsPointerAndLength) {
  struct Expected {
    const std::uint8_t* data;
    std::uint16_t length;
  };
  static_assert(std::is_standard_layout_v<Buffer>);
  static_assert(sizeof(Buffer) == sizeof(Expected));
  static_assert(offsetof(Buffer, data) == 0);
  static_assert(offsetof(Buffer, length) == offsetof(Expected, length));
  EXPECT_EQ(Buffer().data, nullptr);
  EXPECT_EQ(Buffer().length, 0);

  const std::uint8_t bytes[] = {1, 2, 3};
  const Buffer buffer(bytes, 3);
  EXPECT_EQ(buffer.data, bytes);
  EXPECT_EQ(buffer.length, 3);
}

TEST(StringView, ComparesWithEveryTextOfTheStandardLibrary) {
  const String text("abcd", 3);
  const std::string same = "abc";
  EXPECT_TRUE(text == String("abcx", 3));
  EXPECT_TRUE(text != String("abd", 3));
  EXPECT_TRUE(text != String("abc", 2));
  EXPECT_TRUE(text == "abc" && "abc" == text && text != "abcd" && "ab" != text);
  EXPECT_TRUE(text == same && same == text && text != std::string("b") && std::string("b") != text);
  EXPECT_TRUE(text == std::string_view(same) && std::string_view(same) == text && text != std::string_view());
  EXPECT_TRUE(String() == "" && String() == String("x", 0));
  EXPECT_TRUE(String("a\0b", 3) != "a");
  // A text that is longer than a view can be is not equal to what its length is cut to.
  EXPECT_FALSE(String("", 0) == std::string(65'536, 'x'));
}

TEST(StringView, PrintsItsCharacters) {
  std::ostringstream out;
  out << String("abcd", 3) << '|' << std::setw(5) << String("ab", 2) << '|' << String() << '|';
  EXPECT_EQ(out.str(), "abc|   ab||");
}

TEST(BufferView, ComparesItsBytes) {
  const std::uint8_t bytes[] = {1, 2, 3, 1, 2, 4};
  EXPECT_TRUE(Buffer(bytes, 2) == Buffer(bytes + 3, 2));
  EXPECT_FALSE(Buffer(bytes, 2) != Buffer(bytes + 3, 2));
  EXPECT_TRUE(Buffer(bytes, 3) != Buffer(bytes + 3, 3));
  EXPECT_TRUE(Buffer(bytes, 3) != Buffer(bytes, 2));
  EXPECT_TRUE(Buffer() == Buffer(bytes, 0));
}

TEST(BufferView, PrintsHexDigits) {
  const std::uint8_t bytes[] = {0, 0x1b, 0xff};
  std::ostringstream out;
  out << Buffer(bytes, 3) << '|' << std::setw(4) << Buffer(bytes, 1) << '|' << Buffer() << '|';
  EXPECT_EQ(out.str(), "001bff|  00||");
}

TEST(DefaultAllocator, NamesNoPoolOfItsOwn) {
  EXPECT_EQ(MD_Message::DEFAULT_ALLOCATOR.first, nullptr);
  EXPECT_EQ(MD_Message::DEFAULT_ALLOCATOR.second, nullptr);
  static_assert(std::is_same_v<MD_Message::Allocator::first_type, std::shared_ptr<ReusableContainer<MsgData>>>);
  static_assert(std::is_same_v<MD_Message::Allocator::second_type, std::shared_ptr<ReusableContainer<Optimizer>>>);
}

}  // namespace
}  // namespace MD
