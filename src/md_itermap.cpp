#include "md/md_itermap.h"

#include <cstddef>

#include "assertion.h"
#include "md_typemap.h"
#include "record_message.h"

namespace MD {
namespace {

constexpr const char* kFile = "md_message/include/md/md_itermap";

constexpr bool widthsAreThoseOfTheTypes() {
  using Layout = detail::IterMapLayout;
  for (std::size_t code = 0; code != detail::kIterMapWidths.size(); ++code) {
    if (Layout::kWidths[code] != detail::kIterMapWidths[code]) {
      return false;
    }
  }
  return std::size(Layout::kWidths) == detail::kIterMapWidths.size();
}
static_assert(widthsAreThoseOfTheTypes());

detail::WholeBytes bytesFrom(const char* first) noexcept {
  return detail::WholeBytes(reinterpret_cast<const std::uint8_t*>(first));
}

}  // namespace

struct IterMap::Rules {
  static constexpr const char* kAddRefused = "IterMap Error: Attempting to ADD a field with incorrect id or type";
  static constexpr const char* kMessageFull =
      "IterMap Error: Attempting to ADD a field to a message that would exceed 4294967295 bytes";
  static constexpr const char* kGetRefused =
      "IterMap Error: Attempting to GET a field of incorrect type OR overflow error";
  static constexpr bool kGetReportsStoredId = false;
  static constexpr bool kFieldDataTypeOfRequestedId = false;
  static constexpr const char* kUpdateRefused = "IterMap Error: Attempting to UPDATE a field with incorrect type";
  static constexpr detail::UpdateTest kUpdateTest = detail::UpdateTest::LengthThenType;
  static constexpr bool kEmptyMessageBeforeEmptyList = false;
  static constexpr bool kMoveLeavesEmptyMessage = false;
};

IterMap::IterMap() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

// Its memory comes from the shared pools, even if an allocator is passed to the factory.
IterMap::IterMap(const Allocator&) : RecordMessage(DEFAULT_ALLOCATOR) {}

IterMap::~IterMap() = default;

template class RecordMessage<IterMap>;

#define MD_CHECK_VALID() detail::check(isValid(), "isValid()", kFile, __LINE__)

std::uint16_t IterMap::Field::id() const {
  return MD_CHECK_VALID() ? Layout::id(bytesFrom(m_record), 0) : std::uint16_t{0};
}

std::uint8_t IterMap::Field::type() const {
  return MD_CHECK_VALID() ? MD_FieldMap::instance().packed(id()).type : std::uint8_t{0};
}

std::uint32_t IterMap::Field::size() const {
  return MD_CHECK_VALID() ? static_cast<std::uint32_t>(Layout::head(bytesFrom(m_record), 0, type()).valueBytes) : 0;
}

const char* IterMap::Field::data_ptr() const {
  return MD_CHECK_VALID() ? m_record + Layout::headBytes(type()) : nullptr;
}

template <class T>
T IterMap::Field::value(bool isOfType, const char* expression, unsigned line) const {
  detail::check(isOfType, expression, kFile, line);
  return isValid() ? bytesFrom(data_ptr()).load<T>(0) : T{};
}

// Validity is asserted by the first call of type().
#define MD_VALUE(T, condition) value<T>(condition, #condition, __LINE__)

IterMap::Field::operator char() const { return MD_VALUE(char, type() == MD::DATATYPES::CHAR); }

IterMap::Field::operator int() const {
  return MD_VALUE(int, type() == MD::DATATYPES::INT || type() == MD::DATATYPES::OPTI_PRICE);
}

IterMap::Field::operator std::int64_t() const { return MD_VALUE(std::int64_t, type() == MD::DATATYPES::INT64); }

IterMap::Field::operator float() const { return MD_VALUE(float, type() == MD::DATATYPES::FLOAT); }

IterMap::Field::operator double() const { return MD_VALUE(double, type() == MD::DATATYPES::DOUBLE); }

IterMap::Field::operator MD_EpochNS() const { return MD_VALUE(MD_EpochNS, type() == MD::DATATYPES::EPOCH_NSEC); }

#undef MD_VALUE

IterMap::Field::operator MD_Message::String() const {
  detail::check(type() == MD::DATATYPES::STRING, "type() == MD::DATATYPES::STRING", kFile, __LINE__);
  // A word of 0 says 65,535 characters or none; only the message knows where its bytes end.
  const std::uint32_t stored = isValid() ? size() : 0;
  return stored == 0 ? MD_Message::String(isValid() ? data_ptr() : nullptr, 0)
                     : MD_Message::String(data_ptr(), static_cast<std::uint16_t>(stored - 1));
}

IterMap::Field::operator MD_Message::Buffer() const {
  detail::check(type() == MD::DATATYPES::BUFFER, "type() == MD::DATATYPES::BUFFER", kFile, __LINE__);
  if (!isValid()) {
    return {};
  }
  return {reinterpret_cast<const std::uint8_t*>(data_ptr()), static_cast<std::uint16_t>(size())};
}

#undef MD_CHECK_VALID

}  // namespace MD
