/// @file
/// One field of a message, readable or not, as listed by MD_Message::fields(). A plain value that refers to its
/// message.
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

/// The field of a message with one id. Valid until the message changes or is destroyed, or a dictionary is loaded.
class MD_API FieldView {
 public:
  /// The id of the field.
  std::uint16_t id() const noexcept { return m_id; }
  /// The name; empty if the dictionary does not contain the id.
  std::string_view name() const;
  /// The type code in the dictionary, one of `DATATYPES`; 0 if it does not contain the id.
  std::uint8_t type() const noexcept { return m_type; }

  /// Whether a get of the type of the field reads a value.
  bool isReadable() const noexcept { return m_problem == Problem::None; }
  /// The reason why there is no value, such as "truncated: 3 of 8 bytes"; empty for a readable field.
  std::string reason() const;

  /// A copy of the value, empty for a field that cannot be read.
  MD_Variant value() const;
  /// The value of a field of type `T`, one of the nine value types; empty for a field of another type and for one
  /// that cannot be read. Views point into the message.
  template <class T>
  [[nodiscard]] std::optional<detail::FieldValue<T>> get() const {
    return isReadable() && m_type == detail::kTypeCode<T> ? detail::readField<T>(*m_message, m_id) : std::nullopt;
  }

  /// The number of records with this id in the message. Received bytes can repeat an id; the last record is the field.
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
  std::uint32_t m_presentBytes = 0;  // of the value, if there is a problem
  std::uint32_t m_storedBytes = 0;   // the length in the record
  std::uint8_t m_storedType = 0;
};

}  // namespace MD

#endif
