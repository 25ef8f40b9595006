#include <cstdint>

#include <algorithm>
#include <functional>
#include <limits>
#include <optional>
#include <queue>
#include <utility>

#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "md/md_peek.h"
#include "messages/message_copier.h"

namespace MD::tool {
namespace {

/// An input and its next message.
class Head {
 public:
  Head(const Task& task, const std::optional<Field>& timeField)
      : m_task(task), m_reader(task), m_timeField(timeField) {}

  /// @return false at the end
  bool advance() {
    m_hasMessage = m_reader.next() != nullptr;
    if (!m_hasMessage) {
      return false;
    }
    const std::uint64_t before = m_timeNs;
    if (const auto timeNs = readTime()) {
      m_timeNs = *timeNs;
      m_late += m_timeNs < before ? 1 : 0;
    }
    return true;
  }

  /// Of a message without a time, that of the one before it.
  std::uint64_t timeNs() const noexcept { return m_timeNs; }
  /// False before the first message and at the end.
  bool hasMessage() const noexcept { return m_hasMessage; }
  const InputMessage& message() const noexcept { return m_reader.message(); }
  const Task& task() const noexcept { return m_task; }

  void reportLate() const {
    if (m_late != 0) {
      m_task.reporter.wholeInput(counted(m_late, "message is", "messages are") +
                                 " earlier than the one before; inputs are not sorted");
    }
  }

 private:
  std::optional<std::uint64_t> readTime() const {
    MD_EpochNS time;
    if (m_timeField && message().sizeBytes <= std::numeric_limits<std::uint32_t>::max() &&
        peek(message().data, static_cast<std::uint32_t>(message().sizeBytes), m_timeField->id, time)) {
      return time.get();
    }
    if (message().packet == nullptr && !m_timeField) {
      throw UsageError(pathText(*message().file) +
                       " is not a capture and has no timestamps; name a field with --time-field");
    }
    return message().timeNs ? std::optional(static_cast<std::uint64_t>(std::max<std::int64_t>(*message().timeNs, 0)))
                            : std::nullopt;
  }

  const Task& m_task;
  MessageReader m_reader;
  const std::optional<Field>& m_timeField;
  std::uint64_t m_timeNs = 0;
  std::uint64_t m_late = 0;
  bool m_hasMessage = false;
};

/// A format that holds the packets of both.
CaptureFormat common(const CaptureFormat& a, const CaptureFormat& b) {
  if (a == b) {
    return a;
  }
  CaptureFormat both;
  both.isNanosecond = a.isNanosecond || b.isNanosecond;
  both.isBigEndian = a.isBigEndian && b.isBigEndian;
  both.link = a.link;
  both.snapshotBytes = a.snapshotBytes == 0 || b.snapshotBytes == 0 ? 0 : std::max(a.snapshotBytes, b.snapshotBytes);
  return both;
}

/// The format of all captures; none where the inputs are none.
/// @throws UsageError when there is no format for all
std::optional<CaptureFormat> commonFormat(const std::vector<Task>& inputs) {
  std::optional<CaptureFormat> format;
  for (const Task& input : inputs) {
    if (const CaptureFormat* const own = input.messages.captureFormat()) {
      if (format && format->link != own->link) {
        throw UsageError(pathText(input.reporter.input()) +
                         " has packets of another link type than the captures before it; pcap holds one type");
      }
      format = format ? common(*format, *own) : *own;
    }
  }
  return format;
}

}  // namespace

void merge(const std::vector<Task>& inputs, const MergeOptions& options, Output& out) {
  const FieldNames names;
  std::optional<Field> timeField;
  if (!options.timeField.empty()) {
    timeField = timeFieldOf(options.timeField, names);
  }
  std::vector<Head> heads;
  heads.reserve(inputs.size());
  for (const Task& input : inputs) {
    heads.emplace_back(input, timeField);
  }
  // By time, then by input.
  using Next = std::pair<std::uint64_t, std::size_t>;
  std::priority_queue<Next, std::vector<Next>, std::greater<>> queue;
  const auto advance = [&](std::size_t i) {
    if (heads[i].advance()) {
      queue.emplace(heads[i].timeNs(), i);
    }
  };
  for (std::size_t i = 0; i != heads.size(); ++i) {
    advance(i);
  }
  MessageCopier copier(options.source);
  const std::optional<CaptureFormat> format = commonFormat(inputs);
  copier.begin(format ? &*format : nullptr, out.text());
  for (const Head& head : heads) {
    // An input without a message, such as the capture of a quiet line, fits any other.
    if (head.hasMessage()) {
      copier.requireSameKind(head.message());
    }
  }
  while (!queue.empty()) {
    const std::size_t i = queue.top().second;
    queue.pop();
    const Head& head = heads[i];
    out.lineDone();
    attempt(head.task(), [&] {
      copier.tellConversion(head.message(), head.task().reporter);
      copier.append(head.message(), out.text());
    });
    advance(i);
  }
  out.lineDone();
  for (const Head& head : heads) {
    head.reportLate();
  }
}

}  // namespace MD::tool
