#include "messages/message_diff.h"

#include <algorithm>

#include "base/quoted_text.h"
#include "messages/json_writer.h"
#include "messages/received.h"
#include "text/json_text.h"

namespace MD::tool {
namespace {

using Fields = std::vector<std::pair<std::uint16_t, std::string>>;

/// Calls `use` with the id and the two values, null for none, of each field that differs.
template <class Use>
void forEachDifference(const ComparedMessage* before, const ComparedMessage* after, Use use) {
  static const Fields kNone;
  const Fields& was = before != nullptr ? before->fields : kNone;
  const Fields& is = after != nullptr ? after->fields : kNone;
  auto old = was.begin();
  auto now = is.begin();
  while (old != was.end() || now != is.end()) {
    if (now == is.end() || (old != was.end() && old->first < now->first)) {
      use(old->first, &old->second, nullptr);
      ++old;
    } else if (old == was.end() || now->first < old->first) {
      use(now->first, nullptr, &now->second);
      ++now;
    } else {
      if (old->second != now->second) {
        use(old->first, &old->second, &now->second);
      }
      ++old;
      ++now;
    }
  }
}

/// A name of an input, which need not be UTF-8, as a JSON string.
void appendPlace(const std::string& place, std::string& out) {
  if (!appendJsonString(place, out)) {
    appendJsonString(pathText(place), out);
  }
}

}  // namespace

MessageComparison::MessageComparison(const FieldNames& names, std::vector<Field> keys, const Selection& selection,
                                     Reporter& reporter)
    : m_names(names), m_keys(std::move(keys)), m_selection(selection), m_reporter(reporter) {}

ComparedMessage MessageComparison::read(const MD_Message& message) {
  ComparedMessage compared;
  compared.place = m_reporter.place();
  listFields(message, m_names, m_reporter, m_ids);
  for (const Field& key : m_keys) {
    if (message.existsImpl(key.id)) {
      compared.key += compared.key.empty() ? "" : ",";
      compared.key += m_names.jsonKey(key.id);
      appendJsonValue(message, key.id, key.type, compared.key);
    }
  }
  for (const std::uint16_t id : m_ids) {
    const std::uint8_t type = m_names.type(id);
    std::string value;
    if (!appendJsonValue(message, id, type, value)) {
      noteUnreadable(message, id, m_names, m_reporter);
    }
    const bool isKey = std::any_of(m_keys.begin(), m_keys.end(), [id](const Field& key) { return key.id == id; });
    if (!isKey && m_selection.includes(id)) {
      compared.fields.emplace_back(id, std::move(value));
    }
  }
  std::sort(compared.fields.begin(), compared.fields.end());
  return compared;
}

void MessageDiff::addBefore(ComparedMessage message) {
  m_unmatched[message.key].push_back(m_before.size());
  m_before.push_back(std::move(message));
  m_isMatched.push_back(false);
}

void MessageDiff::addAfter(const ComparedMessage& message) {
  const auto found = m_unmatched.find(message.key);
  if (found == m_unmatched.end() || found->second.empty()) {
    write("added", nullptr, &message);
    return;
  }
  const std::size_t place = found->second.front();
  found->second.pop_front();
  m_isMatched[place] = true;
  if (m_before[place].fields != message.fields) {
    write("changed", &m_before[place], &message);
  }
  m_before[place] = {};
}

void MessageDiff::finish() {
  for (std::size_t i = 0; i != m_before.size(); ++i) {
    if (!m_isMatched[i]) {
      write("removed", &m_before[i], nullptr);
    }
  }
}

void MessageDiff::write(const char* change, const ComparedMessage* before, const ComparedMessage* after) {
  m_hasDifferences = true;
  m_isJson ? writeJson(change, before, after) : writeText(change, before, after);
  m_out.lineDone();
}

void MessageDiff::writeText(const char* change, const ComparedMessage* before, const ComparedMessage* after) {
  std::string& out = m_out.text();
  const std::string& key = (before != nullptr ? before : after)->key;
  out.append(change).append(key.empty() ? "" : " ").append(key) += " (";
  out += before != nullptr ? pathText(before->place) : "";
  out += before != nullptr && after != nullptr ? " -> " : "";
  out += after != nullptr ? pathText(after->place) : "";
  out += ")\n";
  forEachDifference(before, after, [&](std::uint16_t id, const std::string* was, const std::string* is) {
    out.append("  ").append(printable(m_names.label(id))).append(": ");
    out.append(was != nullptr ? *was : "absent").append(" -> ").append(is != nullptr ? *is : "absent") += '\n';
  });
}

void MessageDiff::writeJson(const char* change, const ComparedMessage* before, const ComparedMessage* after) {
  std::string& out = m_out.text();
  out.append("{\"change\":\"").append(change).append("\",\"key\":{");
  out.append((before != nullptr ? before : after)->key).append("},\"places\":{");
  if (before != nullptr) {
    out += "\"before\":";
    appendPlace(before->place, out);
  }
  if (after != nullptr) {
    out += before != nullptr ? ",\"after\":" : "\"after\":";
    appendPlace(after->place, out);
  }
  std::string members[2];
  const auto add = [&](std::string& text, std::uint16_t id, const std::string* value) {
    if (value != nullptr) {
      text.append(text.empty() ? "" : ",").append(m_names.jsonKey(id)).append(*value);
    }
  };
  forEachDifference(before, after, [&](std::uint16_t id, const std::string* was, const std::string* is) {
    add(members[0], id, was);
    add(members[1], id, is);
  });
  out.append("},\"before\":{").append(members[0]).append("},\"after\":{").append(members[1]).append("}}\n");
}

}  // namespace MD::tool
