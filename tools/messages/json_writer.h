// Messages as JSON, one object a message, without loss.
#ifndef MDMSG_JSON_WRITER_H
#define MDMSG_JSON_WRITER_H

#include <cstdint>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/diagnostics.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/selection.h"
#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

/// Appends a field's value alone, in the same form for every encoding; the bytes that are there where it cannot be
/// read.
/// @return whether it can be read
bool appendJsonValue(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out);

class JsonWriter {
 public:
  /// @param selection  which fields are written; null: all
  /// @param time       how EPOCH_NSEC values are written
  JsonWriter(const FieldNames& names, Reporter& reporter, const Selection* selection = nullptr, TimeFormat time = {})
      : m_names(names), m_reporter(reporter), m_selection(selection), m_time(std::move(time)) {}

  /// Appends a message that was received as `bytes`. Fields that cannot be read are noted and appear with the bytes
  /// that are there; so is a message whose JSON does not encode to identical bytes.
  /// @param input  of the pseudo-fields that the selection has, which come first; null: without them
  void append(const MD_Message& message, std::string& out, const InputMessage* input = nullptr);

 private:
  template <class T>
  bool appendField(const MD_Message& message, std::uint16_t id, std::string& out);
  bool appendOddInt(const MD_Message& message, std::uint16_t id, std::int32_t value, std::string& out);
  bool appendOddString(const MD_Message& message, std::uint16_t id, MD_Message::String value, std::string& out);
  bool appendFieldOfType(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out);
  void appendPseudoFields(const InputMessage& input, char& separator, std::string& out) const;
  void appendUnreadable(const MD_Message& message, std::uint16_t id, std::string& out);
  void noteOtherBytes(const MD_Message& message);

  const FieldNames& m_names;
  Reporter& m_reporter;
  const Selection* m_selection;
  TimeFormat m_time;
  std::vector<std::uint16_t> m_ids;
  std::unique_ptr<MD_Message> m_copy;  // what encoding the JSON gives
};

}  // namespace MD::tool

#endif
