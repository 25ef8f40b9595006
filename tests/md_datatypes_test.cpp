#include "md/md_datatypes.h"

#include <cstdint>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"

#define MD_TYPE_CODES(X) \
  X(RAW, 0)              \
  X(CHAR, 1)             \
  X(INT, 2)              \
  X(OPTI_PRICE, 2)       \
  X(SHORT, 3)            \
  X(FLOAT, 4)            \
  X(DOUBLE, 5)           \
  X(STRING, 6)           \
  X(VECTOR, 7)           \
  X(MSG_T, 8)            \
  X(DATE, 9)             \
  X(TIME, 10)            \
  X(FRACTION, 11)        \
  X(CHILD_MSG, 12)       \
  X(FOLDED_INT, 13)      \
  X(BUFFER, 14)          \
  X(UINT, 16)            \
  X(LONG_INT, 17)        \
  X(ULONG_INT, 18)       \
  X(INT64, 19)           \
  X(DATETIME, 20)        \
  X(EPOCH_NSEC, 22)

#define MD_ENCODING_CODES(X) \
  X(ITERMAP, 1)              \
  X(MINT, 6)                 \
  X(MSGT, 70)

namespace MD {

// Enumerators of these names in MD itself would be redefinitions.
#define MD_IS_NO_NAME_OF_MD(name, code) inline constexpr const char* name = #name;
MD_TYPE_CODES(MD_IS_NO_NAME_OF_MD)
MD_ENCODING_CODES(MD_IS_NO_NAME_OF_MD)
#undef MD_IS_NO_NAME_OF_MD

namespace {

constexpr bool areSame(std::uint8_t a, std::uint8_t b) { return a == b; }

// One byte, compared with and converted to one without a cast.
#define MD_HAS_CODE(scope, name, code)                                                                         \
  static_assert(scope::name == std::uint8_t{code} && areSame(scope::name, code) && sizeof(scope::name) == 1 && \
                std::is_convertible_v<decltype(scope::name), std::uint8_t>);
#define MD_HAS_TYPE_CODE(name, code) MD_HAS_CODE(DATATYPES, name, code)
#define MD_HAS_ENCODING_CODE(name, code) MD_HAS_CODE(ENCODINGS, name, code)
MD_TYPE_CODES(MD_HAS_TYPE_CODE)
MD_ENCODING_CODES(MD_HAS_ENCODING_CODE)

// The table agrees with the messages.
TEST(Encodings, AreAllMadeByTheFactoryAndHaveTheirFixedCodesAndNames) {
  const std::vector<std::pair<int, std::string>> expected = {{6, "mInt"}, {1, "IterMap"}, {70, "MsgT"}};
  std::vector<std::pair<int, std::string>> listed;
  for (const auto& [code, name] : ENCODINGS::kAll) {
    listed.emplace_back(code, name);
    const auto message = MD_Message::createFromPB(code);
    ASSERT_NE(message, nullptr) << name;
    EXPECT_EQ(message->getPB(), code);
  }
  EXPECT_EQ(listed, expected);
}

}  // namespace
}  // namespace MD
