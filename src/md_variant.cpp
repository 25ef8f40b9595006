#include "md/md_variant.h"

#include <cstring>

#include <new>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>

#include "assertion.h"
#include "md/md_frac_double.h"
#include "report.h"

namespace MD {
namespace {

void checkTag(std::uint32_t actual, std::uint32_t expected) {
  detail::check(actual == expected, "false", "md_message/include/md/md_variant", 334);
}

}  // namespace

BufferHolder::BufferHolder(std::uint32_t size, const std::uint8_t* data) : m_size(size) {
  if (size == 0) {
    return;
  }
  m_block.reset(new (std::nothrow) std::uint8_t[size]);
  if (m_block == nullptr) {
    detail::report([size] {
      return "BufferHolder::BufferHolder - unable to make allocation of size " + std::to_string(size) + "\n";
    });
    throw std::bad_alloc();
  }
  std::memcpy(m_block.get(), data, size);
}

template <class T>
MD_Variant::Slot MD_Variant::inPlace(T value) noexcept {
  static_assert(sizeof(T) <= sizeof(Slot) && std::is_trivially_copyable_v<T>);
  Slot slot{0};
  std::memcpy(&slot.bits, &value, sizeof value);
  return slot;
}

template <class T>
T MD_Variant::bitsAs() const noexcept {
  static_assert(sizeof(T) <= sizeof(Slot) && std::is_trivially_copyable_v<T>);
  T value{};
  std::memcpy(static_cast<void*>(&value), &m_slot, sizeof value);
  return value;
}

void MD_Variant::take(std::uint32_t type, Slot slot) noexcept {
  clear();
  m_type = type;
  m_slot = slot;
}

MD_Variant::MD_Variant(const std::string& value) { set(value); }

MD_Variant::MD_Variant(const MD_Variant& other) {
  Slot copy = other.m_slot;
  switch (other.m_type) {
    case DATATYPES::STRING:
      copy.text = new std::string(*other.m_slot.text);
      break;
    case DATATYPES::BUFFER:
      copy.buffer = new BufferHolder(other.m_slot.buffer->size(), other.m_slot.buffer->data());
      break;
    case DATATYPES::FOLDED_INT:
      copy.foldedInts = new FoldedInts(*other.m_slot.foldedInts);
      break;
    case DATATYPES::DATETIME:
      copy.dateTime = new MD_DateTime(*other.m_slot.dateTime);
      break;
    default:
      break;
  }
  take(other.m_type, copy);
}

MD_Variant& MD_Variant::operator=(const MD_Variant& other) {
  MD_Variant(other).swap(*this);
  return *this;
}

MD_Variant& MD_Variant::operator=(MD_Variant&& other) noexcept {
  MD_Variant(std::move(other)).swap(*this);
  return *this;
}

void MD_Variant::swap(MD_Variant& other) noexcept {
  std::swap(m_type, other.m_type);
  std::swap(m_slot, other.m_slot);
}

void MD_Variant::clear() noexcept {
  switch (m_type) {
    case DATATYPES::STRING:
      delete m_slot.text;
      break;
    case DATATYPES::BUFFER:
      delete m_slot.buffer;
      break;
    case DATATYPES::FOLDED_INT:
      delete m_slot.foldedInts;
      break;
    case DATATYPES::DATETIME:
      delete m_slot.dateTime;
      break;
    default:
      break;
  }
  m_type = 0;
  m_slot.bits = 0;
}

void MD_Variant::set(char value) { take(DATATYPES::CHAR, inPlace(value)); }
void MD_Variant::set(std::int32_t value) { take(DATATYPES::INT, inPlace(value)); }
void MD_Variant::set(std::int64_t value) { take(DATATYPES::INT64, inPlace(value)); }
void MD_Variant::set(float value) { take(DATATYPES::FLOAT, inPlace(value)); }
void MD_Variant::set(double value) { take(DATATYPES::DOUBLE, inPlace(value)); }
void MD_Variant::set(MD_EpochNS value) { take(DATATYPES::EPOCH_NSEC, inPlace(value)); }

// The copies are made before the old value goes: the new one may be a view into it.
void MD_Variant::set(StringView16 value) {
  Slot slot;
  slot.text = new std::string(std::string_view(value));
  take(DATATYPES::STRING, slot);
}

void MD_Variant::set(const std::string& value) {
  Slot slot;
  slot.text = new std::string(value);
  take(DATATYPES::STRING, slot);
}

void MD_Variant::set(BufferView16 value) {
  Slot slot;
  slot.buffer = new BufferHolder(value.length, value.data);
  take(DATATYPES::BUFFER, slot);
}

void MD_Variant::set(MD_DateTime value) {
  Slot slot;
  slot.dateTime = new MD_DateTime(value);
  take(DATATYPES::DATETIME, slot);
}

MD_Variant MD_Variant::ofShort(std::int16_t value) {
  MD_Variant variant;
  variant.take(DATATYPES::SHORT, inPlace(value));
  return variant;
}

MD_Variant MD_Variant::ofUnsigned(std::uint32_t value) {
  MD_Variant variant;
  variant.take(DATATYPES::UINT, inPlace(value));
  return variant;
}

MD_Variant MD_Variant::ofUnsignedLong(std::uint64_t value) {
  MD_Variant variant;
  variant.take(DATATYPES::ULONG_INT, inPlace(value));
  return variant;
}

MD_Variant MD_Variant::ofFoldedInts(const FoldedInts& value) {
  Slot slot;
  slot.foldedInts = new FoldedInts(value);
  MD_Variant variant;
  variant.take(DATATYPES::FOLDED_INT, slot);
  return variant;
}

template <>
char MD_Variant::get<char>() const {
  checkTag(m_type, DATATYPES::CHAR);
  return bitsAs<char>();
}

template <>
std::int32_t MD_Variant::get<std::int32_t>() const {
  checkTag(m_type, DATATYPES::INT);
  return bitsAs<std::int32_t>();
}

template <>
std::int64_t MD_Variant::get<std::int64_t>() const {
  checkTag(m_type, DATATYPES::INT64);
  return bitsAs<std::int64_t>();
}

template <>
float MD_Variant::get<float>() const {
  checkTag(m_type, DATATYPES::FLOAT);
  return bitsAs<float>();
}

template <>
double MD_Variant::get<double>() const {
  checkTag(m_type, DATATYPES::DOUBLE);
  return bitsAs<double>();
}

template <>
MD_EpochNS MD_Variant::get<MD_EpochNS>() const {
  checkTag(m_type, DATATYPES::EPOCH_NSEC);
  return bitsAs<MD_EpochNS>();
}

// A slot that owns nothing of the type asked for cannot be followed; it reads as an empty value.
template <>
StringView16 MD_Variant::get<StringView16>() const {
  checkTag(m_type, DATATYPES::STRING);
  return m_type == DATATYPES::STRING ? StringView16(*m_slot.text) : StringView16();
}

template <>
std::string MD_Variant::get<std::string>() const {
  checkTag(m_type, DATATYPES::STRING);
  return m_type == DATATYPES::STRING ? *m_slot.text : std::string();
}

template <>
BufferView16 MD_Variant::get<BufferView16>() const {
  checkTag(m_type, DATATYPES::BUFFER);
  return m_type == DATATYPES::BUFFER
             ? BufferView16(m_slot.buffer->data(), static_cast<std::uint16_t>(m_slot.buffer->size()))
             : BufferView16();
}

template <>
MD_DateTime MD_Variant::get<MD_DateTime>() const {
  checkTag(m_type, DATATYPES::DATETIME);
  return m_type == DATATYPES::DATETIME ? *m_slot.dateTime : MD_DateTime();
}

bool operator==(const MD_Variant& a, const MD_Variant& b) {
  if (a.m_type != b.m_type) {
    return false;
  }
  switch (a.m_type) {
    case DATATYPES::STRING:
      return *a.m_slot.text == *b.m_slot.text;
    case DATATYPES::BUFFER:
      return a.m_slot.buffer->size() == b.m_slot.buffer->size() &&
             (a.m_slot.buffer->size() == 0 ||
              std::memcmp(a.m_slot.buffer->data(), b.m_slot.buffer->data(), a.m_slot.buffer->size()) == 0);
    case DATATYPES::FOLDED_INT:
      return *a.m_slot.foldedInts == *b.m_slot.foldedInts;
    case DATATYPES::DATETIME:
      return *a.m_slot.dateTime == *b.m_slot.dateTime;
    case DATATYPES::FLOAT:
      return a.get<float>() == b.get<float>();
    case DATATYPES::DOUBLE:
      return a.get<double>() == b.get<double>();
    default:
      return a.m_slot.bits == b.m_slot.bits;
  }
}

std::ostream& operator<<(std::ostream& out, const MD_Variant& value) {
  switch (value.m_type) {
    case DATATYPES::CHAR:
      return out << value.get<char>();
    case DATATYPES::INT:
      return out << value.get<std::int32_t>();
    case DATATYPES::SHORT:
      return out << value.bitsAs<std::int16_t>();
    case DATATYPES::FLOAT:
      return out << value.get<float>();
    case DATATYPES::UINT:
      return out << value.bitsAs<std::uint32_t>();
    case DATATYPES::DOUBLE:
      return out << frac_double_to_string(value.get<double>());
    case DATATYPES::STRING:
      return out << *value.m_slot.text;
    case DATATYPES::FOLDED_INT:
      return out << "<MAP>";
    case DATATYPES::BUFFER: {
      const BufferHolder& buffer = *value.m_slot.buffer;
      if (buffer.size() == 0) {
        return out << "<BUFFER>";
      }
      return out << std::string(buffer.data(), buffer.data() + buffer.size());
    }
    case DATATYPES::ULONG_INT:
    case DATATYPES::EPOCH_NSEC:
      return out << value.bitsAs<std::uint64_t>();
    case DATATYPES::INT64:
      return out << value.get<std::int64_t>();
    case DATATYPES::DATETIME:
      return out << *value.m_slot.dateTime;
    default:
      return out << "<VARIANT>";
  }
}

}  // namespace MD
