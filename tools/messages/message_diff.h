// The differences between two sequences of messages, by a key.
#ifndef MDMSG_MESSAGE_DIFF_H
#define MDMSG_MESSAGE_DIFF_H

#include <cstddef>
#include <cstdint>

#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/selection.h"

namespace MD::tool {

/// A message as it is compared, whatever its encoding: each field's value in its JSON form.
struct ComparedMessage {
  std::string key;  ///< the members of a JSON object, `"SYMBOL":"AB"`
  std::string place;
  std::vector<std::pair<std::uint16_t, std::string>> fields;  ///< by their ids, those of the key skipped
};

/// What a message holds of the fields to compare. Fields that cannot be read, and repeated ones, are noted.
class MessageComparison {
 public:
  /// @param keys  the fields that decide which messages belong together
  /// @param selection  which fields are compared
  MessageComparison(const FieldNames& names, std::vector<Field> keys, const Selection& selection, Reporter& reporter);

  ComparedMessage read(const MD_Message& message);

 private:
  const FieldNames& m_names;
  std::vector<Field> m_keys;
  const Selection& m_selection;
  Reporter& m_reporter;
  std::vector<std::uint16_t> m_ids;
};

/// Compares each message of the one sequence with the message of the other that has the same key and as many others
/// with that key before it. All messages of the first sequence without a counterpart yet are kept.
class MessageDiff {
 public:
  /// @param isJson  whether one JSON object is written per difference, else lines of text
  MessageDiff(const FieldNames& names, bool isJson, Output& out) : m_names(names), m_isJson(isJson), m_out(out) {}

  /// A message of the first sequence. To be called for all of them before the second.
  void addBefore(ComparedMessage message);
  /// A message of the second sequence. Writes in what it differs.
  void addAfter(const ComparedMessage& message);
  /// Writes the messages of the first sequence that are left.
  void finish();

  bool hasDifferences() const noexcept { return m_hasDifferences; }

 private:
  void write(const char* change, const ComparedMessage* before, const ComparedMessage* after);
  void writeText(const char* change, const ComparedMessage* before, const ComparedMessage* after);
  void writeJson(const char* change, const ComparedMessage* before, const ComparedMessage* after);

  const FieldNames& m_names;
  bool m_isJson;
  Output& m_out;
  std::vector<ComparedMessage> m_before;
  std::vector<bool> m_isMatched;
  std::unordered_map<std::string, std::deque<std::size_t>> m_unmatched;  // places in m_before, by key
  bool m_hasDifferences = false;
};

}  // namespace MD::tool

#endif
