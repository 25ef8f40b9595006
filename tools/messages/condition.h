// The conditions of --where over messages: expressions whose fields and values are those of the dictionary.
#ifndef MDMSG_CONDITION_H
#define MDMSG_CONDITION_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "md/md_peek.h"
#include "messages/pseudo_fields.h"
#include "text/expression.h"
#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

/// What a condition is asked about: a message, or the bytes of one, which are then read without building it.
class Candidate {
 public:
  explicit Candidate(const MD_Message& message) : m_message(&message) {}
  explicit Candidate(const InputMessage& input) : m_input(&input) {}
  Candidate(const MD_Message& message, const InputMessage& input) : m_message(&message), m_input(&input) {}

  template <class T>
  bool get(std::uint16_t id, T& out) const {
    return m_message != nullptr ? m_message->get(id, out)
                                : peek(m_input->data, static_cast<std::uint32_t>(m_input->sizeBytes), id, out);
  }
  /// Where the message is from; null for one that is not from an input.
  const InputMessage* input() const noexcept { return m_input; }

 private:
  const MD_Message* m_message = nullptr;
  const InputMessage* m_input = nullptr;
};

/// A comparison with a field that a message does not have, or has with bytes that are no value, is not met.
/// Thread-safe.
class Condition {
 public:
  /// @param zone  of times without an offset
  /// @throws UsageError when `text` is not a condition, or its values do not go with the fields
  Condition(std::string_view text, const FieldNames& names, const TimeZone& zone);
  Condition(Condition&&) noexcept;
  ~Condition();

  bool holds(const Candidate& candidate) const;
  bool holds(const MD_Message& message) const { return holds(Candidate(message)); }

  /// How many comparisons read a field.
  std::size_t fieldCount() const noexcept { return m_fieldCount; }
  bool hasPseudoFields() const noexcept { return m_fieldCount != m_expression.tests().size(); }

 private:
  class Test;

  Expression m_expression;
  std::vector<Test> m_tests;
  std::size_t m_fieldCount = 0;
};

}  // namespace MD::tool

#endif
