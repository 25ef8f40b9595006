/// @file
/// The abstract message: a set of fields, each a 16-bit id and one value of the type that the dictionary declares. A
/// message is always in its serialised form. It owns its contents and takes the memory from pools. A message belongs to
/// one thread at a time; different messages are independent.
///
/// Received messages may contain unreadable fields: read them by get(), fields(), print(), to_string() and
/// copyReadable(). Iterators, `operator<<` and copyMsg() abort if a field cannot be read.
///
/// No operation on a field throws for malformed data: it returns false (or null) and may write a diagnostic to standard
/// error. If memory runs out, std::bad_alloc leaves the message unchanged. The first message of the process loads the
/// dictionary, with the exceptions of MD_FieldMap::instance().
#ifndef MD_MESSAGE_H
#define MD_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <iosfwd>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "md/detail/byte_range.h"
#include "md/md_api.h"
#include "md/md_field.h"
#include "md/md_field_view.h"
#include "md/md_fieldmap.h"
#include "md/md_msgdata.h"
#include "md/md_optimizer.h"
#include "md/md_reusable_container.h"
#include "md/md_value_types.h"
#include "md/md_variant.h"

namespace MD {

/// A set of fields, each a 16-bit id and one value, that is always in its serialised form. Create one as an `mInt`,
/// `IterMap` or `MsgT`, or by a factory, and access its fields by the typed get(), add() and update().
class MD_API MD_Message {
 public:
  /// Views of characters and bytes. One obtained from a message is valid until that message changes; one into a message
  /// is a valid argument of add and update on the same message.
  /// @{
  using String = StringView16;
  using Buffer = BufferView16;
  /// @}

  /// The pools of a message: for buffers and for field indexes. Empty pointers mean the shared pools.
  using Allocator =
      std::pair<std::shared_ptr<ReusableContainer<MsgData>>, std::shared_ptr<ReusableContainer<Optimizer>>>;

  /// Both pointers empty.
  static const Allocator DEFAULT_ALLOCATOR;

  class const_iterator;

  // Factories. Each returns an owning pointer, which is empty for an unknown encoding id. ---------------------------

  /// A new empty message of the encoding with the id (PB) `code`, one of `ENCODINGS`.
  static std::unique_ptr<MD_Message> createFromPB(std::uint8_t code);

  /// A message that holds a copy of received bytes, in the encoding given by the first byte. An empty pointer for an
  /// unknown encoding byte, and for null or no bytes.
  /// @param allocator  the pools to use; an `IterMap` always uses the shared ones
  static std::unique_ptr<MD_Message> createFromBytes(const std::uint8_t* bytes, std::uint32_t sizeBytes,
                                                     const Allocator& allocator);
  /// The same with the shared pools.
  static std::unique_ptr<MD_Message> createFromBytes(const std::uint8_t* bytes, std::uint32_t sizeBytes);
  /// The same for contiguous bytes, such as a std::vector<std::uint8_t> or a std::string_view.
  template <class Bytes, detail::IfByteRange<Bytes> = 0>
  static std::unique_ptr<MD_Message> createFromBytes(const Bytes& bytes) {
    const std::size_t sizeBytes = std::size(bytes);
    return sizeBytes <= kMostBytes
               ? createFromBytes(detail::firstByte(bytes), static_cast<std::uint32_t>(sizeBytes), DEFAULT_ALLOCATOR)
               : nullptr;
  }

  /// A new empty message of the preferred encoding of the site: the number in "message/preferred.conf" on the
  /// configuration search path. Without the file it is the encoding that a previous call has read, or `MsgT`. Other
  /// numbers from 1 to 70 are accepted and return an empty pointer, so test the result. Thread-safe.
  /// @param cached  whether to read the file once per process instead of on every call
  static std::unique_ptr<MD_Message> createPreferred(bool cached);

  /// @{
  /// Memory of messages on the heap. Threads cache released memory and reuse it.
  static void* operator new(std::size_t sizeBytes);
  static void* operator new(std::size_t sizeBytes, const std::nothrow_t&) noexcept;
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void operator delete(void* memory, std::size_t sizeBytes) noexcept;
  static void operator delete(void* memory, const std::nothrow_t&) noexcept;
  static void operator delete(void*, void*) noexcept {}
  /// @}

  // The virtual functions, in their order. --------------------------------------------------------------------------

  /// Returns the field index, then the buffer, to their pools.
  virtual ~MD_Message();

  /// The encoding id (PB), one of `ENCODINGS`. It is also the first serialised byte.
  virtual std::uint8_t getPB() const = 0;

  /// The location of the value of a field in the serialised bytes.
  /// @param[out] type       the `DATATYPES` code of the value
  /// @param[out] sizeBytes  the stored length of the value; in a truncated last record more than the message contains
  /// @return the first byte of the value, or null (nothing set) if the field is absent
  virtual const std::uint8_t* fieldData(std::uint16_t id, std::uint8_t& type, std::uint32_t& sizeBytes) const = 0;

  /// A new empty message of the same encoding.
  virtual std::unique_ptr<MD_Message> createEmpty() const = 0;

  /// A new message of the same encoding with a copy of the contents.
  virtual std::unique_ptr<MD_Message> clone() const = 0;

  /// Moves the contents to a new message of the same encoding. This one must be cleared before it is used again.
  [[nodiscard]] virtual std::unique_ptr<MD_Message> moveToNew() = 0;

 protected:
  /// @{
  /// The virtual functions of get(), add() and update(), nine of each.
#define MD_SLOT(T, name, code) virtual bool getImpl(std::uint16_t id, T& out) const = 0;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) virtual bool addImpl(std::uint16_t id, T value) = 0;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) virtual bool updateImpl(std::uint16_t id, T value) = 0;
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
  /// @}

 public:
  /// @{
  /// Erases every listed field that is present.
  /// @return whether all of them were present; for an empty list or message see the encoding
  virtual bool eraseArrayImpl(const std::vector<std::uint16_t>& ids) = 0;
  virtual bool eraseSetImpl(const std::set<std::uint16_t>& ids) = 0;
  /// @}

  /// Erases one field. @return whether it was present
  virtual bool eraseImpl(std::uint16_t id) = 0;

  /// Removes all fields and keeps the memory.
  virtual void clearImpl() = 0;

  /// Whether there is no byte after the header.
  virtual bool emptyImpl() const = 0;

  /// Whether the message has the field.
  virtual bool existsImpl(std::uint16_t id) const = 0;

  /// The serialised message, getSizeImpl() bytes, valid until the message changes.
  virtual const std::uint8_t* getBinary() const = 0;

  /// Replaces the contents by a copy of received bytes in this encoding, including the header, which is not checked.
  /// Records with unknown ids are dropped and reported on standard error. The bytes may belong to this message.
  /// @return false, with nothing changed, if `bytes` is null
  virtual bool setBinaryImpl(const std::uint8_t* bytes, std::uint32_t sizeBytes) = 0;

  /// The number of serialised bytes, including the header.
  virtual std::uint32_t getSizeImpl() const = 0;

  /// Appends the id of every record in wire order, including records whose value cannot be read.
  virtual void getFieldIdsImpl(std::vector<std::uint16_t>& out) const = 0;

  // The front end. --------------------------------------------------------------------------------------------------

  MD_Message(const MD_Message&) = delete;
  MD_Message& operator=(const MD_Message&) = delete;

  /// @name Reading a field
  /// `T` is each of the nine value types: `char`, `std::int32_t`, `std::int64_t`, `float`, `double`, `String`,
  /// `Buffer`, `MD_DateTime` and `MD_EpochNS`.
  /// @{

  /// Reads a field. @return false, `out` unchanged, if it is absent, of another type, or truncated
#define MD_FRONT_END(T, name, code) \
  [[nodiscard]] bool get(std::uint16_t id, T& out) const { return getImpl(id, out); }
  MD_VALUE_TYPES(MD_FRONT_END)
#undef MD_FRONT_END
  [[nodiscard]] bool get(std::uint16_t id, std::string& out) const;
  [[nodiscard]] bool get(std::uint16_t id, std::string_view& out) const;
  [[nodiscard]] bool getString(std::uint16_t id, std::string& out) const { return get(id, out); }
  /// @}

  /// @name Adding a field
  /// `T` is each of the nine value types.
  /// @{

  /// Adds a field. @return false if it is already present, if the dictionary declares another type, or if the encoding
  /// cannot hold the value. Lengths of strings are reduced to 16 bits. A null `text` is refused.
#define MD_FRONT_END(T, name, code) \
  bool add(std::uint16_t id, T value) { return addImpl(id, value); }
  MD_VALUE_TYPES(MD_FRONT_END)
#undef MD_FRONT_END
  bool add(std::uint16_t id, const std::string& text) { return addImpl(id, String(text)); }
  bool add(std::uint16_t id, const char* text) { return text != nullptr && addImpl(id, terminated(text)); }
  bool addString(std::uint16_t id, const char* text, std::uint16_t length) { return addImpl(id, String(text, length)); }
  bool addString(std::uint16_t id, const std::string& text) { return add(id, text); }
  bool addString(std::uint16_t id, const char* text) { return add(id, text); }
  /// Adds an integer of a type that is not among the nine, such as `unsigned`, `std::size_t` and `std::uint64_t`, as an
  /// `INT` or `INT64` field. @return false, with a diagnostic on standard error, if it does not fit the field;
  /// otherwise as for the other integers
  template <class Integer, detail::IfOtherInteger<Integer> = 0>
  bool add(std::uint16_t id, Integer value) {
    return addInteger(id, static_cast<std::uint64_t>(value), detail::fitsInt64(value));
  }
  /// Does not compile.
  template <class Bool, detail::IfBool<Bool> = 0>
  bool add(std::uint16_t, Bool) {
    return detail::refuseBool<Bool>();
  }
  /// @}

  /// @name Changing a field
  /// `T` is each of the nine value types.
  /// @{

  /// Replaces the value of a field, or adds the field if it is absent. A value of another length moves the field to the
  /// end of the message. @return false if the value cannot be stored; in some encodings the field may then be erased
#define MD_FRONT_END(T, name, code) \
  bool update(std::uint16_t id, T value) { return updateImpl(id, value); }
  MD_VALUE_TYPES(MD_FRONT_END)
#undef MD_FRONT_END
  bool update(std::uint16_t id, const std::string& text) { return updateImpl(id, String(text)); }
  bool update(std::uint16_t id, const char* text) { return text != nullptr && updateImpl(id, terminated(text)); }
  bool updateString(std::uint16_t id, const char* text, std::uint16_t length) {
    return updateImpl(id, String(text, length));
  }
  bool updateString(std::uint16_t id, const std::string& text) { return update(id, text); }
  bool updateString(std::uint16_t id, const char* text) { return update(id, text); }
  /// Like add() of such an integer. One that does not fit changes nothing.
  template <class Integer, detail::IfOtherInteger<Integer> = 0>
  bool update(std::uint16_t id, Integer value) {
    return updateInteger(id, static_cast<std::uint64_t>(value), detail::fitsInt64(value));
  }
  /// Does not compile.
  template <class Bool, detail::IfBool<Bool> = 0>
  bool update(std::uint16_t, Bool) {
    return detail::refuseBool<Bool>();
  }
  /// @}

  /// @name By typed field
  /// A `Field<T>` is an id with the type of its value (md/md_field.h). Values that convert to it without loss are
  /// accepted; others do not compile. Text and bytes that are too long for the encoding are refused, never shortened.
  /// @{

  /// The value of a field: a std::string_view for a `String`, otherwise a `T`. Empty if get() of the id would be false.
  template <class T>
  [[nodiscard]] std::optional<detail::FieldValue<T>> get(Field<T> field) const {
    return detail::readField<T>(*this, field.id());
  }
  /// The same for an id, as in `get<double>(22)`.
  template <class T>
  [[nodiscard]] std::optional<detail::FieldValue<T>> get(std::uint16_t id) const {
    return get(Field<T>(id));
  }
  /// The value of a field, or `otherwise`.
  template <class T>
  [[nodiscard]] detail::FieldValue<T> value_or(Field<T> field, detail::FieldValue<T> otherwise) const {
    return get(field).value_or(otherwise);
  }
  /// Adds a field. @return false, with the message unchanged, if it is already present, if the dictionary does not
  /// declare the type `T`, or if the value cannot be stored
  template <class T, class Value>
  [[nodiscard]] bool add(Field<T> field, const Value& value) {
    T converted{};
    return detail::convertForField(value, converted) && addImpl(field.id(), converted);
  }
  /// Replaces the value of a field, or adds the field if it is absent. @return false, with the message unchanged, if
  /// the dictionary does not declare the type `T`, if the record in the message has another type, id or width, or if
  /// the value cannot be stored
  template <class T, class Value>
  [[nodiscard]] bool update(Field<T> field, const Value& value) {
    T converted{};
    return detail::convertForField(value, converted) && updateField(field.id(), converted);
  }
  /// Erases a field. @return whether it was present
  template <class T>
  bool erase(Field<T> field) {
    return eraseImpl(field.id());
  }
  /// @{
  /// Whether the message has the field.
  template <class T>
  bool exists(Field<T> field) const {
    return existsImpl(field.id());
  }
  template <class T>
  bool contains(Field<T> field) const {
    return existsImpl(field.id());
  }
  /// @}
  /// @}

  /// @name By variant
  /// @{

  /// Like get(), add() and update() of a value of the type that the dictionary declares. Aborts if that is not one of
  /// the nine value types and, for add and update, if the variant holds another type.
  [[nodiscard]] bool get(std::uint16_t id, MD_Variant& out) const;
  bool add(std::uint16_t id, const MD_Variant& value);
  bool update(std::uint16_t id, const MD_Variant& value);
  /// @}

  /// Copies every field of `source`, of any encoding: fields in both messages get its value, other fields of this
  /// message are kept. Aborts if a field cannot be read or stored; copyReadable() does not.
  void copyMsg(const MD_Message& source);

  /// Reads a price stored in three `INT` fields: whole part + numerator / denominator. The default of a missing whole
  /// part or numerator is 0, that of a missing denominator 100. A stored denominator of 0 divides as doubles do.
  /// @return false, `out` unchanged, if none of the three can be read
  [[nodiscard]] bool getWND(std::uint16_t whole_id, std::uint16_t numerator_id, std::uint16_t denominator_id,
                            double& out) const;

  /// @name As a container
  /// Plain names for the virtual functions.
  /// @{

  /// The number of serialised bytes, including the header.
  std::size_t size() const noexcept { return static_cast<std::size_t>(m_data->size()); }
  /// The serialised message, size() bytes, valid until the message changes.
  const std::uint8_t* data() const noexcept { return m_data->data(); }
  /// Whether there is no byte after the header.
  bool empty() const { return emptyImpl(); }
  /// Whether the message has the field.
  bool contains(std::uint16_t id) const { return existsImpl(id); }
  /// Erases a field. @return whether it was present
  bool erase(std::uint16_t id) { return eraseImpl(id); }
  /// Removes all fields and keeps the memory.
  void clear() { clearImpl(); }

  /// Replaces the contents by contiguous received bytes of this encoding, such as a std::vector<std::uint8_t> or a
  /// std::string_view. Records with unknown ids are dropped and reported, as by setBinaryImpl().
  /// @return false, with nothing changed, if the first byte is that of another encoding, or for no bytes
  template <class Bytes, detail::IfByteRange<Bytes> = 0>
  [[nodiscard]] bool parse(const Bytes& bytes) {
    const std::size_t sizeBytes = std::size(bytes);
    return sizeBytes != 0 && sizeBytes <= kMostBytes && *detail::firstByte(bytes) == getPB() &&
           setBinaryImpl(detail::firstByte(bytes), static_cast<std::uint32_t>(sizeBytes));
  }

  /// Every field, each id once, in wire order. A repeated id is listed at its last record, which is the field. Fields
  /// that cannot be read are included, with the reason. Writes no diagnostics.
  std::vector<FieldView> fields() const;
  /// @}

  /// The number of different fields.
  std::size_t fieldCount() const { return m_optimizer->get_field_count(); }

  /// Clears `ids`, then lists the fields as getFieldIdsImpl() does.
  void get_field_ids(std::vector<std::uint16_t>& ids) const;

  /// Exchanges the contents with a message of the same encoding, including the memory and its pools. The encoding is
  /// not checked.
  void swap(MD_Message& other) noexcept;

  /// A no-op, kept for compatibility; use `print(std::cout, message)`.
  void print() const;

  /// @{
  /// Iterates over the fields in wire order. Aborts if a field cannot be read; fields() lists such fields.
  const_iterator begin() const;
  const_iterator end() const;
  /// @}

 protected:
  /// With the shared pools.
  MD_Message();
  /// With the pools of `allocator`.
  explicit MD_Message(const Allocator& allocator);

  /// Writes id, type (as a raw byte) and size of a field to standard error, each on its own line.
  void printError(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) const;

  /// @{
  /// update() of a typed field, one per value type.
#define MD_SLOT(T, name, code) bool updateField(std::uint16_t id, T value);
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
  /// @}

  /// The dictionary.
  const MD_FieldMap& fieldMap() const noexcept { return *m_map; }
  /// @{
  /// The buffer.
  MsgData& bytes() noexcept { return *m_data; }
  const MsgData& bytes() const noexcept { return *m_data; }
  /// @}
  /// @{
  /// The field index.
  Optimizer& positions() noexcept { return *m_optimizer; }
  const Optimizer& positions() const noexcept { return *m_optimizer; }
  /// @}

 private:
  friend class Delta;
  friend class FieldView;
  friend class MessagePrinter;

  friend MD_API std::vector<std::uint16_t> copyFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                                                      MD_Message& target);

  static constexpr std::size_t kMostBytes = 0xffff'ffff;

  static String terminated(const char* text) { return {text, static_cast<std::uint16_t>(std::strlen(text))}; }
  enum class Unreadable { IsAssertedAgainst, ReadsAsEmpty };
  bool readVariant(std::uint16_t id, MD_Variant& out, Unreadable unreadable) const;
  bool addInteger(std::uint16_t id, std::uint64_t bits, bool fitsInt64);
  bool updateInteger(std::uint16_t id, std::uint64_t bits, bool fitsInt64);
  template <class T>
  MD_LOCAL bool updateTyped(std::uint16_t id, T value);
  MD_LOCAL std::uint64_t longestValueBytes() const;
  MD_LOCAL bool canTake(const MD_Message& source, std::uint16_t id, std::uint64_t mostBytes) const;
  MD_LOCAL void takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                           std::vector<std::uint16_t>* notCopied);
  MD_LOCAL void takeReserved(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                             std::vector<std::uint16_t>* notCopied);
  MD_LOCAL bool takeChanges(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                            const std::vector<std::uint16_t>& removed);
  MD_LOCAL bool takeAllOrSome(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                              const std::vector<std::uint16_t>& removed);
  void reserveForCopy(const MD_Message& source, std::size_t fieldCount);

  const MD_FieldMap* m_map;
  ReusableContainerWrapper<MsgData> m_data;
  ReusableContainerWrapper<Optimizer> m_optimizer;
};

/// A forward iterator over the fields of a message, which must not change meanwhile. It holds a copy of the current
/// value. Field id 65535 marks the end, so a field with that id is not reached.
class MD_API MD_Message::const_iterator {
 public:
  /// Unpacks as `const auto& [id, value]`.
  struct Field {
    std::uint16_t id;  ///< the id of the field
    MD_Variant value;  ///< a copy of its value
  };

  /// @{
  /// Required by the standard library.
  using iterator_category = std::forward_iterator_tag;
  using value_type = Field;
  using difference_type = std::ptrdiff_t;
  using pointer = const Field*;
  using reference = const Field&;
  /// @}

  /// Refers to no message; equal only to other default-constructed iterators.
  const_iterator() = default;

  /// @{
  /// The current field.
  reference operator*() const noexcept { return m_field; }
  pointer operator->() const noexcept { return &m_field; }
  /// @}
  /// The id of the field.
  std::uint16_t id() const noexcept { return m_field.id; }
  /// The value of the field.
  const MD_Variant& value() const noexcept { return m_field.value; }

  /// @{
  /// Advances to the next field. Aborts if its value cannot be read.
  const_iterator& operator++();
  const_iterator operator++(int);
  /// @}

  /// @{
  /// Equal at the same field of the same message, or if both are at its end.
  friend bool operator==(const const_iterator& a, const const_iterator& b) noexcept {
    return a.m_message == b.m_message && a.m_field.id == b.m_field.id &&
           (a.m_field.id == kEnd || a.m_index == b.m_index);
  }
  friend bool operator!=(const const_iterator& a, const const_iterator& b) noexcept { return !(a == b); }
  /// @}

 private:
  friend class MD_Message;
  friend class MessagePrinter;

  static constexpr std::uint16_t kEnd = 65535;

  const_iterator(const MD_Message& message, std::vector<std::uint16_t> ids, Unreadable unreadable);
  void load();

  const MD_Message* m_message = nullptr;
  std::vector<std::uint16_t> m_ids;
  std::uint32_t m_index = 0;
  Field m_field{kEnd, {}};
  Unreadable m_unreadable = Unreadable::IsAssertedAgainst;
};

/// Prints a message, one field per line: its name (or its id, if the dictionary does not contain it) in a column of 22
/// characters, " = ", the value. Text is not escaped, and a repeated field is printed each time; use print() for
/// received messages. Aborts if a field cannot be read; if the assertion handler returns, such a field is printed as
/// "<VARIANT>". The width of the stream is ignored, and 0 afterwards.
MD_API std::ostream& operator<<(std::ostream& out, const MD_Message& message);

/// Any received message as text, in the layout of `operator<<`. Names, text and bytes are escaped (md/md_escape.h). A
/// field that cannot be read is printed as "<truncated: 3 of 8 bytes>", or with another reason. Each id appears once,
/// in the order of fields(), with " <the last of 3 records>" after the value of a repeated one. Writes no diagnostics.
/// Takes time and memory proportional to the message.
MD_API std::string to_string(const MD_Message& message);
/// Writes to_string() of the message, regardless of the format flags and the width of the stream, which is 0
/// afterwards.
MD_API std::ostream& print(std::ostream& out, const MD_Message& message);

/// Copies the listed fields of `source`, of any encoding, to `target`, as copyMsg() does, for any received messages.
/// Takes time proportional to the messages. Writes no diagnostics.
/// @return the ids that were not copied: `source` does not have the field or it cannot be read, or `target` cannot hold
///         the value (in an mInt, strings of more than 254 characters)
MD_API std::vector<std::uint16_t> copyFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                                             MD_Message& target);

/// The same for every field of `source`: what copyMsg() does, without an assertion.
/// @return the ids that were not copied
[[nodiscard]] MD_API std::vector<std::uint16_t> copyReadable(const MD_Message& source, MD_Message& target);

/// Whether two messages have the same fields: the same ids with values of the same type and the same bits, whatever the
/// encodings and the order. Of an id that received bytes repeat, the last record counts. Fields that cannot be read are
/// the same when both messages have the encoding and the records have the bytes in common.
[[nodiscard]] MD_API bool sameFields(const MD_Message& a, const MD_Message& b);

/// Replaces the contents of `changed` by the ids of `after` that `before` does not have or holds another value of, and
/// those of `removed` by the ids of `before` that `after` does not have; each in the order of its message. Values are
/// compared as by sameFields().
MD_API void changedFields(const MD_Message& before, const MD_Message& after, std::vector<std::uint16_t>& changed,
                          std::vector<std::uint16_t>& removed);

}  // namespace MD

#endif
