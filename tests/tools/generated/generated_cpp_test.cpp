// The constants of odd_fields.xml in C++, and those for C as C++: compiled as strictly as users may, and compared with
// dictionaries.
#include <stdexcept>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "md/md_fieldmap.h"
#include "md/md_mint.h"
#include "odd.h"
#include "odd_c.h"

namespace {

using MD::MD_FieldMap;

static_assert(odd::fields::BID.id() == 146);
static_assert(std::is_same_v<decltype(odd::fields::alignas_), const MD::Field<std::int32_t>>);

std::string errorOf(void (*check)()) {
  try {
    check();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(GeneratedFields, AreThoseOfTheDictionary) {
  MD_FieldMap::reload_xml(TEST_DICTIONARY);
  EXPECT_EQ(errorOf(odd::fields::check), "");
  EXPECT_EQ(odd::fields::kFingerprint, MD_FieldMap::instance().fingerprint());
  EXPECT_EQ(ODD_DICTIONARY_FINGERPRINT, MD_FieldMap::instance().fingerprint());
  const std::pair<std::uint16_t, const char*> names[] = {
      {odd::fields::BID.id(), "BID"},
      {odd::fields::BID_x20_PRICE.id(), "BID PRICE"},
      {odd::fields::BID_x2D_PRICE.id(), "BID-PRICE"},
      {odd::fields::BID_x2E_PRICE.id(), "BID.PRICE"},
      {odd::fields::n52W_HIGH.id(), "52W_HIGH"},
      {odd::fields::x5F_X.id(), "_X"},
      {odd::fields::X_x5F.id(), "X_"},
      {odd::fields::A_x5F5F_B.id(), "A__B"},
      {odd::fields::xE8B2B7E580A4.id(), "\xe8\xb2\xb7\xe5\x80\xa4"},
      {odd::fields::a_x22_b_x5C_c_x3F3F2F.id(), "a\"b\\c?\?/"},
      {odd::fields::class_.id(), "class"},
      {odd::fields::None_.id(), "None"},
      {odd::fields::restrict_.id(), "restrict"},
      {odd::fields::check_.id(), "check"},
      {odd::fields::std_.id(), "std"},
      {odd::fields::MD_.id(), "MD"},
      {ODD_BID_x20_PRICE, "BID PRICE"},
  };
  for (const auto& [id, name] : names) {
    EXPECT_EQ(MD_FieldMap::instance().idToName(id), name);
  }
}

TEST(GeneratedFields, ReadAndWriteMessages) {
  MD_FieldMap::reload_xml(TEST_DICTIONARY);
  MD::mInt message;
  EXPECT_TRUE(message.add(odd::fields::alignas_, 5));
  EXPECT_TRUE(message.add(odd::fields::break_, "text"));
  EXPECT_EQ(message.get(odd::fields::alignas_), 5);
  EXPECT_EQ(message.get(odd::fields::break_), "text");
  EXPECT_FALSE(message.get(odd::fields::class_).has_value());
}

TEST(GeneratedFields, CheckNamesFieldAndDifference) {
  MD_FieldMap::loadText("BID 22 DOUBLE", "other.txt");
  const std::string error = errorOf(odd::fields::check);
  const std::string beginning =
      "the dictionary other.txt does not match the fields of this program: alignas: expected id 1 INT";
  EXPECT_EQ(error.substr(0, beginning.size()), beginning);
  char text[sizeof "the dictionary other.txt"];
  EXPECT_FALSE(odd_check(text, sizeof text));
  EXPECT_STREQ(text, "the dictionary other.txt");
}

}  // namespace
