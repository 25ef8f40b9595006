#include "md/md_itermap.h"

#include <cstring>

#include <limits>

#include "assertion.h"
#include "md_typemap.h"
#include "record_message.h"

namespace MD {
namespace {

constexpr const char* kFile = "md_message/include/md/md_itermap";

// By type code. The widths of strings and buffers are in their records.
constexpr const auto& kWidths = detail::kIterMapWidths;

constexpr std::uint32_t lengthWordBytes(std::uint8_t type) noexcept {
  return type == DATATYPES::STRING ? sizeof(std::uint16_t) : type == DATATYPES::BUFFER ? sizeof(std::uint32_t) : 0;
}

}  // namespace

struct IterMap::Rules : IterMap::Layout {
  using Values::decode;

  static constexpr std::uint8_t kHeader[] = {ENCODINGS::ITERMAP};
  static constexpr const char* kAddRefused = "IterMap Error: Attempting to ADD a field with incorrect id or type";
  static constexpr const char* kUpdateRefused = "IterMap Error: Attempting to UPDATE a field with incorrect type";
  static constexpr bool kEmptyMessageBeforeEmptyList = false;
  static constexpr bool kMoveLeavesEmptyMessage = false;
  static constexpr std::uint64_t kMaxHeadBytes = headBytes<BufferView16>();

  template <class View>
  static std::uint16_t id(const View& view, std::uint64_t position) noexcept {
    return view.template load<std::uint16_t>(position);
  }

  template <class View>
  static Head head(const View& view, std::uint64_t position, std::uint8_t dictionaryType) noexcept {
    switch (dictionaryType) {
      case DATATYPES::STRING:
        return headOf<StringView16>(view, position);
      case DATATYPES::BUFFER:
        return headOf<BufferView16>(view, position);
      default:
        return {position, dictionaryType < std::size(kWidths) ? kWidths[dictionaryType] : std::uint64_t{0}, kIdBytes,
                dictionaryType};
    }
  }

  // A table of widths would wait for the dictionary's answer before every record.
  static bool step(const detail::WholeBytes& bytes, std::uint64_t position, std::uint8_t type,
                   std::uint64_t& next) noexcept {
    constexpr std::uint64_t kFourByteTypes = detail::typeBit(DATATYPES::INT) | detail::typeBit(DATATYPES::FLOAT);
    const std::uint64_t bit = detail::typeBit(type);
    if ((bit & detail::kEightByteTypes) != 0) {
      next = detail::byJump(position + kIdBytes + 8);
    } else if ((bit & kFourByteTypes) != 0) {
      next = detail::byJump(position + kIdBytes + 4);
    } else {
      next = position + head(bytes, position, type).bytes();
    }
    return true;
  }

  static void refuseLength(std::uint64_t) noexcept {}

  // A word of 0 stands for 65,535 characters where so many lie in the message.
  static bool decode(const detail::ByteView& view, const Head& head, StringView16& out) noexcept {
    constexpr std::uint16_t kLongest = std::numeric_limits<std::uint16_t>::max();
    if (head.valueBytes == 0 && view.fits(head.valuePosition(), std::uint64_t{kLongest} + 1)) {
      out = {reinterpret_cast<const char*>(view.at(head.valuePosition())), kLongest};
      return true;
    }
    return Values::decode(view, head, out);
  }

  static void refuseGet(std::uint16_t id, const Head& head) {
    detail::reportField("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", id, head.type,
                        static_cast<std::size_t>(head.valueBytes));
  }

  // The width is tested before the type, so that a value of another width and type costs the field.
  static detail::UpdateStep updateStep(const Head& stored, std::uint8_t type, std::uint64_t lengthBytes) noexcept {
    if (stored.valueBytes != lengthBytes) {
      return detail::UpdateStep::EraseAndAppend;
    }
    return stored.type == type ? detail::UpdateStep::Overwrite : detail::UpdateStep::Refuse;
  }
};

IterMap::IterMap() : RecordMessage(DEFAULT_ALLOCATOR) { startEmpty(); }

IterMap::IterMap(const Allocator& allocator) : RecordMessage(allocator) {}

IterMap::~IterMap() = default;

template class RecordMessage<IterMap>;

namespace {

template <class T>
T loadFrom(const char* bytes) noexcept {
  T value{};
  std::memcpy(static_cast<void*>(&value), bytes, sizeof value);
  return value;
}

}  // namespace

#define MD_CHECK_VALID() detail::check(isValid(), "isValid()", kFile, __LINE__)

std::uint16_t IterMap::Field::id() const {
  return MD_CHECK_VALID() ? loadFrom<std::uint16_t>(m_record) : std::uint16_t{0};
}

std::uint8_t IterMap::Field::type() const {
  return MD_CHECK_VALID() ? MD_FieldMap::instance().packed(id()).type : std::uint8_t{0};
}

std::uint32_t IterMap::Field::size() const {
  if (!MD_CHECK_VALID()) {
    return 0;
  }
  const std::uint8_t code = type();
  const char* afterId = m_record + sizeof(std::uint16_t);
  switch (code) {
    case DATATYPES::STRING:
      return loadFrom<std::uint16_t>(afterId);
    case DATATYPES::BUFFER:
      return loadFrom<std::uint32_t>(afterId);
    default:
      return code < std::size(kWidths) ? kWidths[code] : 0;
  }
}

const char* IterMap::Field::data_ptr() const {
  return MD_CHECK_VALID() ? m_record + sizeof(std::uint16_t) + lengthWordBytes(type()) : nullptr;
}

template <class T>
T IterMap::Field::value(bool isOfType, const char* expression, unsigned line) const {
  detail::check(isOfType, expression, kFile, line);
  return isValid() ? loadFrom<T>(data_ptr()) : T{};
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
