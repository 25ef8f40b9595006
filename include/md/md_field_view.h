/// @file
/// One field of a message, readable or not, as MD_Message::fields() lists it. A plain value that refers to its message.
#ifndef MD_FIELD_VIEW_H
#define MD_FIELD_VIEW_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

#include "md/md_api.h"
#include "md/md_field.h"
#include "md/md_variant.h"

namespace MD {

class MD_Message;

/// What a message holds under one id. Valid until the message changes or is destroyed, or the dictionary is loaded.
class MD_API FieldView {
 public:
  /// The field's id.
  std::uint16_t id() const noexcept { return m_id; }
  /// Its name, empty for an id that the dictionary does not know.
  std::string_view name() const;
  /// The code of the type that the dictionary gives it, one of `DATATYPES`, 0 for an id that it does not know.
  std::uint8_t type() const noexcept { return m_type; }

  /// Whether a get of the field's type reads a value.
  bool isReadable() const noexcept { return m_problem == Problem::None; }
  /// Why there is no value, such as "truncated: 3 of 8 bytes"; empty for a field that can be read.
  std::string reason() const;

  /// A copy of the value, empty for a field that cannot be read.
  MD_Variant value() const;
  /// The value of a field of type `T`, one of the nine value types; nothing for a field of another type and for one
  /// that cannot be read. Views are into the message.
  template <class T>
  [[nodiscard]] std::optional<detail::FieldValue<T>> get() const {
    return isReadable() && m_type == detail::kTypeCode<T> ? detail::readField<T>(*m_message, m_id) : std::nullopt;
  }

  /// How many records the message holds under this id. Received bytes can repeat an id; the last record counts.
  std::size_t recordCount() const noexcept { return m_recordCount; }

 private:
  friend class MD_Message;
  enum class Problem : std::uint8_t { None, UnknownId, TypeOfNoMessage, Truncated, TruncatedHead, OtherType, Length };

  FieldView(const MD_Message& message, std::uint16_t id, std::uint32_t recordCount);

  const MD_Message* m_message;
  std::uint16_t m_id;
  std::uint8_t m_type = 0;
  Problem m_problem = Problem::None;
  std::uint32_t m_recordCount;
  std::uint32_t m_presentBytes = 0;  // of the value, where there is a problem
  std::uint32_t m_storedBytes = 0;   // the length that the record states
  std::uint8_t m_storedType = 0;
};

}  // namespace MD

#endif
