// Which messages of the inputs a command takes, and which of their fields.
#ifndef MDMSG_SELECTION_H
#define MDMSG_SELECTION_H

#include <cstdint>

#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/condition.h"
#include "messages/pseudo_fields.h"
#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

/// As the command line gives it.
struct SelectionOptions {
  std::vector<std::string> where;   ///< conditions, all of which must hold
  std::vector<std::string> fields;  ///< names or ids, of pseudo-fields, too, or "all" alone; none: all
  std::string fromTime;             ///< when the first message was captured that is taken; empty: any time
  std::string toTime;               ///< the same of the first one that is no longer taken
  TimeZone zone;                    ///< of times without an offset
  std::uint64_t skip = 0;
  std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
};

/// Where a stretch of time begins or ends, as text: a time as parseTime() reads it, a time of day, which is that of the
/// day of the first message, or a duration since the first message.
class TimeLimit {
 public:
  /// @param option  names the limit in errors
  /// @throws UsageError for any other text
  TimeLimit(const char* option, const std::string& text, const TimeZone& zone);

  /// @param firstNs  the time of the first message
  std::uint64_t ns(std::uint64_t firstNs) const;

 private:
  enum class Kind : std::uint8_t { Absolute, OfDay, AfterFirst };

  Kind m_kind = Kind::Absolute;
  std::uint64_t m_ns = 0;
  TimeZone m_zone;
};

/// A column of the output: a field, or what is known of a message besides its fields.
struct Column {
  std::optional<PseudoField> pseudo;
  Field field;
};

/// Applies the conditions first, then the skip and the limit to the messages that meet them.
class Selection {
 public:
  /// @throws UsageError when an option cannot be used
  Selection(const SelectionOptions& options, const FieldNames& names);

  /// Whether this message is taken. To be called once for each, in their order. Of an input the message is only built
  /// where that is faster than reading the fields of the conditions from its bytes.
  bool takes(const MD_Message& message) { return meets(Candidate(message)) && count(); }
  bool takes(const InputMessage& input);
  /// The same where there is no message to look at: conditions do not hold.
  bool takesUnreadable();
  /// Whether no message can be taken any more.
  bool isDone() const noexcept { return m_taken == m_limit; }

  bool hasConditions() const noexcept { return !m_conditions.empty() || m_from || m_to; }
  bool hasFields() const noexcept { return !m_columns.empty(); }
  /// In the order of the command line, with the pseudo-fields among them.
  const std::vector<Column>& columns() const noexcept { return m_columns; }
  /// The same without pseudo-fields.
  const std::vector<Field>& fields() const noexcept { return m_fields; }
  /// @throws UsageError when a pseudo-field is among the columns
  void refusePseudoFields(const std::string& why) const;
  /// Whether this field is among them, or all are.
  bool includes(std::uint16_t id) const;
  /// Removes from `ids` what is not.
  void keepIncluded(std::vector<std::uint16_t>& ids) const;
  /// Erases all other fields.
  void keepFields(MD_Message& message) const;

 private:
  bool meets(const Candidate& candidate);
  bool isInTime(const InputMessage* input);
  bool count();
  bool addField(Field field);

  std::vector<Condition> m_conditions;
  std::size_t m_peeked = 0;  // how often the conditions read a field
  std::optional<TimeLimit> m_from;
  std::optional<TimeLimit> m_to;
  std::optional<std::pair<std::uint64_t, std::uint64_t>> m_time;  // the limits, once there was a first message
  std::vector<Column> m_columns;
  std::vector<Field> m_fields;
  std::vector<bool> m_isIncluded;  // by id
  std::uint64_t m_skip;
  std::uint64_t m_limit;
  std::uint64_t m_taken = 0;
};

}  // namespace MD::tool

#endif
