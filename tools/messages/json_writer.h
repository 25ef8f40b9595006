// Messages as JSON, one object a message, without loss.
#ifndef MDMSG_JSON_WRITER_H
#define MDMSG_JSON_WRITER_H

#include <cstdint>

#include <memory>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/selection.h"
#include "text/time_text.h"

namespace MD::tool {

/// Appends a field's value alone, in the same form for every encoding; the bytes that are there where it cannot be
/// read.
/// @return whether it can be read
bool appendJsonValue(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out);

class JsonWriter {
 public:
  /// @param selection  which fields are written; null: all
  /// @param zone       if given, EPOCH_NSEC values are written as timestamps in it
  JsonWriter(const FieldNames& names, Reporter& reporter, const Selection* selection = nullptr,
             const TimeZone* zone = nullptr)
      : m_names(names), m_reporter(reporter), m_selection(selection), m_zone(zone) {}

  /// Appends a message that was received as `bytes`. Fields that cannot be read are noted and appear with the bytes
  /// that are there; so is a message whose JSON does not encode to identical bytes.
  void append(const MD_Message& message, std::string& out);

 private:
  template <class T>
  bool appendField(const MD_Message& message, std::uint16_t id, std::string& out);
  bool appendOddInt(const MD_Message& message, std::uint16_t id, std::int32_t value, std::string& out);
  bool appendOddString(const MD_Message& message, std::uint16_t id, MD_Message::String value, std::string& out);
  bool appendFieldOfType(const MD_Message& message, std::uint16_t id, std::uint8_t type, std::string& out);
  void appendUnreadable(const MD_Message& message, std::uint16_t id, std::string& out);
  void noteOtherBytes(const MD_Message& message);

  const FieldNames& m_names;
  Reporter& m_reporter;
  const Selection* m_selection;
  const TimeZone* m_zone;
  std::vector<std::uint16_t> m_ids;
  std::unique_ptr<MD_Message> m_copy;  // what encoding the JSON gives
};

}  // namespace MD::tool

#endif
