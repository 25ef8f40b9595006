// Which messages of the inputs a command takes, and which of their fields.
#ifndef MDMSG_SELECTION_H
#define MDMSG_SELECTION_H

#include <cstdint>

#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "dictionary/field_names.h"
#include "md/md_message.h"

namespace MD::tool {

/// As the command line gives it.
struct SelectionOptions {
  std::vector<std::string> where;   ///< conditions, all of which must hold
  std::vector<std::string> fields;  ///< names or ids; none: all
  std::uint64_t skip = 0;
  std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
};

/// 'FIELD op value': one of =, !=, <, <=, >, >= and, for strings, ~ ("contains"). The value is written as in CSV, in
/// double quotes or without. A message that does not have the field never meets it.
class Condition {
 public:
  /// @throws UsageError when `text` is no condition, or its value does not go with the field
  Condition(std::string_view text, const FieldNames& names);

  bool holds(const MD_Message& message) const;

 private:
  enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual, Contains };

  void parseValue(const std::string& text);
  template <class T>
  bool compares(const T& there, const T& value) const;

  Field m_field;
  Operator m_operator = Operator::Equal;
  std::int64_t m_whole = 0;      // CHAR, INT, INT64
  std::uint64_t m_unsigned = 0;  // EPOCH_NSEC; of a DATETIME date and time
  double m_real = 0;             // FLOAT, DOUBLE
  std::string m_text;            // STRING, BUFFER
};

/// Applies the conditions first, then the skip and the limit to the messages that meet them.
class Selection {
 public:
  /// @throws UsageError when an option cannot be used
  Selection(const SelectionOptions& options, const FieldNames& names);

  /// Whether this message is taken. To be called once for each, in their order.
  bool takes(const MD_Message& message);
  /// The same where there is no message to look at: conditions do not hold.
  bool takesUnreadable();
  /// Whether no message can be taken any more.
  bool isDone() const noexcept { return m_taken == m_limit; }

  bool hasConditions() const noexcept { return !m_conditions.empty(); }
  bool hasFields() const noexcept { return !m_fields.empty(); }
  /// In the order of the command line.
  const std::vector<Field>& fields() const noexcept { return m_fields; }
  /// Whether this field is among them, or all are.
  bool includes(std::uint16_t id) const;
  /// Removes from `ids` what is not.
  void keepIncluded(std::vector<std::uint16_t>& ids) const;
  /// Erases all other fields.
  void keepFields(MD_Message& message) const;

 private:
  bool count();

  std::vector<Condition> m_conditions;
  std::vector<Field> m_fields;
  std::vector<bool> m_isIncluded;  // by id
  std::uint64_t m_skip;
  std::uint64_t m_limit;
  std::uint64_t m_taken = 0;
};

}  // namespace MD::tool

#endif
