// An encoding that the library does not have: a layout and rules are all that it takes.
#include <cstdint>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "md/detail/record_layout.h"
#include "md/detail/value_codec.h"
#include "md/detail/wire_bytes.h"
#include "md/md_delta.h"
#include "md/md_field.h"
#include "md/md_record_message.h"
#include "record_message.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD {

// Record: type code u8, field id u16, value length u16, value; little-endian.
struct TaggedLayout : detail::ValueCodec<detail::ByteOrder::Little> {
  static constexpr std::uint8_t kHeader[] = {200, 0};
  static constexpr bool kTypesAreOnTheWire = true;
  static constexpr std::uint64_t kMaxHeadBytes = 5;
  static constexpr std::uint64_t kMaxValueBytes = 65535;

  template <class Bytes>
  static std::uint16_t id(const Bytes& bytes, std::uint64_t position) noexcept {
    return bytes.template load<std::uint16_t>(position + 1);
  }
  static constexpr std::uint32_t headBytes(std::uint8_t) noexcept { return kMaxHeadBytes; }
  template <class Bytes>
  static Head head(const Bytes& bytes, std::uint64_t position, std::uint8_t) noexcept {
    return {position, bytes.template load<std::uint16_t>(position + 3), kMaxHeadBytes,
            bytes.template load<std::uint8_t>(position)};
  }
  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                   std::uint64_t& next) noexcept {
    const Head stored = head(bytes, position, type);
    next = position + stored.bytes();
    return stored.type == type;
  }
  template <class T>
  static void write(detail::ByteWriter out, std::uint16_t id, std::uint64_t lengthBytes, const T& value) noexcept {
    out.put(std::uint8_t{detail::kTypeCode<T>});
    out.put(id);
    out.put(static_cast<std::uint16_t>(lengthBytes));
    overwrite(out, value);
  }
};

class Tagged final : public RecordMessage<Tagged> {
 public:
  Tagged() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

 private:
  friend class RecordMessage<Tagged>;
  using Layout = TaggedLayout;

  struct Rules {
    static constexpr const char* kAddRefused = "Tagged Error: ADD";
    static constexpr const char* kMessageFull = "Tagged Error: FULL";
    static constexpr const char* kGetRefused = "Tagged Error: GET";
    static constexpr bool kGetReportsStoredId = true;
    static constexpr bool kFieldDataTypeOfRequestedId = false;
    static constexpr const char* kUpdateRefused = "Tagged Error: UPDATE";
    static constexpr detail::UpdateTest kUpdateTest = detail::UpdateTest::TypeThenLength;
    static constexpr bool kEmptyMessageBeforeEmptyList = false;
    static constexpr bool kMoveLeavesEmptyMessage = true;

    static std::string tooLong(std::uint64_t lengthBytes) {
      return "Tagged Error: " + std::to_string(lengthBytes) + " bytes\n";
    }
  };

  explicit Tagged(const Allocator& allocator) : RecordMessage(allocator) {}
};

template class RecordMessage<Tagged>;

namespace test {
namespace {

class FurtherEncoding : public testing::Test {
 protected:
  FurtherEncoding() { loadDictionary(kDictionary); }

  Tagged m_message;
  CapturedErrors m_errors;
};

TEST_F(FurtherEncoding, StartsAsItsHeader) {
  EXPECT_EQ(m_message.getPB(), 200);
  EXPECT_EQ(hexOf(m_message), "C8 00");
  EXPECT_TRUE(m_message.emptyImpl());
}

TEST_F(FurtherEncoding, HoldsEveryType) {
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    EXPECT_TRUE(type.add(m_message, type.field, 0));
    EXPECT_FALSE(type.add(m_message, type.field, 0));
    EXPECT_TRUE(type.update(m_message, type.otherField, 0));
  }
  const auto received = parse<Tagged>(bytesOf(m_message));
  EXPECT_EQ(hexOf(*received), hexOf(m_message));
  EXPECT_EQ(received->fieldCount(), 2 * valueTypes().size());
  for (const ValueType& type : valueTypes()) {
    SCOPED_TRACE(type.name);
    std::string raw;
    EXPECT_TRUE(type.get(*received, type.otherField, 1, raw));
    EXPECT_EQ(raw, type.raw(0));
    EXPECT_TRUE(type.update(*received, type.field, type.lastSample()));
    EXPECT_TRUE(type.get(*received, type.field, 0, raw));
    EXPECT_EQ(raw, type.raw(type.lastSample()));
  }
  EXPECT_EQ(m_errors.take(), "");
}

TEST_F(FurtherEncoding, WritesItsLayout) {
  EXPECT_TRUE(m_message.add(id::kInt, 5));
  EXPECT_TRUE(m_message.add(id::kString, "AB"));
  EXPECT_EQ(hexOf(m_message), "C8 00 02 2C 01 04 00 05 00 00 00 06 3C 00 03 00 41 42 00");
  EXPECT_TRUE(m_message.eraseImpl(id::kInt));
  EXPECT_EQ(hexOf(*m_message.clone()), "C8 00 06 3C 00 03 00 41 42 00");
  EXPECT_EQ(hexOf(*m_message.moveToNew()), "C8 00 06 3C 00 03 00 41 42 00");
  EXPECT_EQ(hexOf(m_message), "C8 00");
}

TEST_F(FurtherEncoding, DropsFieldsThatAreUnknownOrOfAnotherType) {
  const auto message = parse<Tagged>(fromHex("C8 00 02 E7 03 01 00 FF 05 2C 01 01 00 FF 01 0A 00 01 00 41"));
  EXPECT_EQ(hexOf(*message), "C8 00 01 0A 00 01 00 41");
  EXPECT_EQ(m_errors.take(),
            badField(id::kUnknown, 2, 1) + badField(id::kInt, 5, 1) + remainder("CH                     = A\n"));
}

TEST_F(FurtherEncoding, RefusesByItsRules) {
  EXPECT_FALSE(m_message.add(id::kInt, 1.5));
  EXPECT_EQ(m_errors.take(), report("Tagged Error: ADD", id::kInt, 5, 8));
  EXPECT_FALSE(m_message.add(id::kString, std::string(65535, 'x')));
  EXPECT_EQ(m_errors.take(), "Tagged Error: 65536 bytes\n");
  EXPECT_TRUE(m_message.add(id::kInt, 5));
  EXPECT_FALSE(m_message.update(id::kInt, 1.5F));
  EXPECT_EQ(m_errors.take(), report("Tagged Error: UPDATE", id::kInt, 2, 4));
  double value = 7;
  EXPECT_FALSE(m_message.get(id::kInt, value));
  EXPECT_EQ(value, 7);
  EXPECT_EQ(m_errors.take(), report("Tagged Error: GET", id::kInt, 2, 4));
}

TEST_F(FurtherEncoding, IsUpdatedByFieldsThatAreConstants) {
  constexpr Field<std::int32_t> kNumber{id::kInt};
  constexpr Field<double> kOtherType{id::kInt};
  MD_Message& message = m_message;
  ASSERT_TRUE(message.add(id::kInt, 5));
  EXPECT_TRUE(message.update(kNumber, 6));
  EXPECT_EQ(message.get(kNumber), 6);
  EXPECT_FALSE(message.update(kOtherType, 1.5));
  EXPECT_EQ(message.get(kNumber), 6);
}

TEST_F(FurtherEncoding, TakesDeltas) {
  Delta delta(Field<MD_Message::Buffer>{id::kBuffer});
  ASSERT_TRUE(m_message.add(id::kInt, 5));
  ASSERT_TRUE(m_message.add(id::kString, "AB"));
  Tagged changes;
  ASSERT_TRUE(changes.add(id::kInt, 6));
  ASSERT_TRUE(delta.apply(changes, m_message));
  EXPECT_EQ(hexOf(m_message), "C8 00 02 2C 01 04 00 06 00 00 00 06 3C 00 03 00 41 42 00");
  // INT is truncated.
  EXPECT_FALSE(delta.apply(*parse<Tagged>(fromHex("C8 00 06 3C 00 03 00 43 44 00 02 2C 01 04 00 07")), m_message));
  EXPECT_EQ(hexOf(m_message), "C8 00 02 2C 01 04 00 06 00 00 00 06 3C 00 03 00 41 42 00");
}

}  // namespace
}  // namespace test
}  // namespace MD
