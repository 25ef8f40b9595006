/// @file
/// A tagged copy of one field value. It owns its value; regarding threads it is a plain value type.
#ifndef MD_VARIANT_H
#define MD_VARIANT_H

#include <cstdint>

#include <iosfwd>
#include <map>
#include <memory>
#include <string>

#include "md/md_api.h"
#include "md/md_value_types.h"

namespace MD {

/// A block of bytes with its size.
class MD_API BufferHolder {
 public:
  /// Copies `size` bytes. A failed allocation is reported on standard error and throws std::bad_alloc.
  BufferHolder(std::uint32_t size, const std::uint8_t* data);

  /// The number of bytes.
  std::uint32_t size() const noexcept { return m_size; }
  /// Null if the size is 0.
  const std::uint8_t* data() const noexcept { return m_block.get(); }

 private:
  std::uint32_t m_size;
  std::unique_ptr<std::uint8_t[]> m_block;
};

/// Holds a value of one of the nine value types, or nothing. Its tag is the `DATATYPES` code of the value, 0 if empty.
class MD_API MD_Variant {
 public:
  /// The value of a variant with the tag `FOLDED_INT`. No message operation creates or accepts one.
  using FoldedInts = std::map<std::uint16_t, std::int32_t>;

  /// Empty.
  MD_Variant() noexcept = default;
  /// Holds `value`, of one of the nine value types.
#define MD_CONSTRUCT(T, name, code) \
  explicit MD_Variant(T value) { set(value); }
  MD_VALUE_TYPES(MD_CONSTRUCT)
#undef MD_CONSTRUCT
  /// @{
  /// A string of any length; adding it to a message reduces the length to 16 bits. A `const char*` must not be null.
  explicit MD_Variant(const std::string& value);
  explicit MD_Variant(const char* value) : MD_Variant(std::string(value)) {}
  /// @}
  /// @{
  /// Copies or moves the value of another variant.
  MD_Variant(const MD_Variant& other);
  MD_Variant(MD_Variant&& other) noexcept { swap(other); }
  MD_Variant& operator=(const MD_Variant& other);
  MD_Variant& operator=(MD_Variant&& other) noexcept;
  /// @}
  ~MD_Variant() { clear(); }

  /// @{
  /// Values of types that dictionaries declare and messages do not carry.
  static MD_Variant ofShort(std::int16_t value);            ///< tag `SHORT`
  static MD_Variant ofUnsigned(std::uint32_t value);        ///< tag `UINT`
  static MD_Variant ofUnsignedLong(std::uint64_t value);    ///< tag `ULONG_INT`
  static MD_Variant ofFoldedInts(const FoldedInts& value);  ///< tag `FOLDED_INT`
  /// @}

  /// Exchanges the values.
  void swap(MD_Variant& other) noexcept;

  /// The tag of the value held, 0 for none.
  std::uint32_t type() const noexcept { return m_type; }
  /// Whether there is no value.
  bool empty() const noexcept { return m_type == 0; }
  /// Releases the value.
  void clear() noexcept;

  /// @{
  /// Releases the old value and holds a copy of the new one. Views into the variant itself are valid arguments.
#define MD_SET(T, name, code) void set(T value);
  MD_VALUE_TYPES(MD_SET)
#undef MD_SET
  void set(const std::string& value);
  /// @}

  /// The value as a `T`: one of the nine value types (views point into the variant) or std::string. Aborts if the tag
  /// is not that of `T`; if the assertion handler returns, in-place values are read as the stored bits and others are
  /// empty.
  template <class T>
  T get() const;

  /// @{
  /// Equal if tag and value are equal.
  friend MD_API bool operator==(const MD_Variant& a, const MD_Variant& b);
  friend bool operator!=(const MD_Variant& a, const MD_Variant& b) { return !(a == b); }
  /// @}

 private:
  friend MD_API std::ostream& operator<<(std::ostream& out, const MD_Variant& value);

  // Exactly one of these is alive; the tag determines which. 8 bytes.
  union Slot {
    std::uint64_t bits;
    std::string* text;
    BufferHolder* buffer;
    FoldedInts* foldedInts;
    MD_DateTime* dateTime;
  };

  void take(std::uint32_t type, Slot slot) noexcept;
  template <class T>
  static Slot inPlace(T value) noexcept;
  template <class T>
  MD_LOCAL T bitsAs() const noexcept;

  std::uint32_t m_type = 0;
  Slot m_slot{0};
};

#define MD_GET(T, name, code) \
  template <>                 \
  MD_API T MD_Variant::get<T>() const;
MD_VALUE_TYPES(MD_GET)
#undef MD_GET
template <>
MD_API std::string MD_Variant::get<std::string>() const;

/// Exchanges the values.
inline void swap(MD_Variant& a, MD_Variant& b) noexcept { a.swap(b); }

/// Writes the value: numbers as the stream does, doubles as exact decimal text, strings and buffers unchanged,
/// "<BUFFER>" for an empty buffer, "<MAP>" for folded ints, "<VARIANT>" for no value or an unknown tag. The width of
/// the stream applies to the whole text.
MD_API std::ostream& operator<<(std::ostream& out, const MD_Variant& value);

}  // namespace MD

#endif
