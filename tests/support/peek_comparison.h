// How reading received bytes without a message differs from reading the message that is built from them. Each function
// returns the difference in words, empty when there is none.
#ifndef MD_TESTS_SUPPORT_PEEK_COMPARISON_H
#define MD_TESTS_SUPPORT_PEEK_COMPARISON_H

#include <cstdint>
#include <cstring>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "md/md_message.h"
#include "md/md_peek.h"
#include "md/md_record_range.h"
#include "support/captured_errors.h"
#include "support/message_sequence.h"
#include "support/messages.h"

namespace MD::test {

/// A read value: whether there was one, and its bytes.
struct ReadValue {
  bool isRead = false;
  std::string raw;

  friend bool operator==(const ReadValue& a, const ReadValue& b) { return a.isRead == b.isRead && a.raw == b.raw; }
  friend bool operator!=(const ReadValue& a, const ReadValue& b) { return !(a == b); }
};

/// Reads by `read`, which sets its argument or returns false and leaves it as it was.
template <class T, class Read>
ReadValue readValueBy(Read read) {
  T value = samplesOf<T>().front();
  const std::string before = rawOf(value);
  const bool isRead = read(value);
  if (!isRead && rawOf(value) != before) {
    return {false, "a failed read changed its output"};
  }
  return {isRead, isRead ? rawOf(value) : std::string()};
}

/// One field as a `T`.
template <class T>
std::string peekDifference(const HeapBlock& block, const MD_Message* message, const std::vector<RecordView>& records,
                           std::uint16_t id, const char* type) {
  const auto whatDiffers = [id, type](const char* by) {
    return std::string(by) + " reads field " + std::to_string(id) + " otherwise as " + type;
  };
  const auto expected = readValueBy<T>([&](T& out) { return message != nullptr && message->get(id, out); });
  const auto peeked = readValueBy<T>([&](T& out) { return peek(block.data(), block.size(), id, out); });
  // A string of the length field 0 may be a message's longest, made of records that are not contiguous in the bytes.
  constexpr std::size_t kLongest = 65535;
  const bool isLongest = std::is_same_v<T, MD_Message::String> && block.data() != nullptr && block.size() > kLongest &&
                         block.data()[0] == ENCODINGS::ITERMAP;
  const bool isSplit = isLongest && expected.raw.size() == kLongest && message->getSizeImpl() != block.size();
  if (peeked != expected && !(isSplit && peeked == ReadValue())) {
    return whatDiffers("peek");
  }
  const auto isOfField = [id](const RecordView& record) { return record.id == id; };
  const auto first = std::find_if(records.begin(), records.end(), isOfField);
  const auto last = std::find_if(records.rbegin(), records.rend(), isOfField);
  const auto readFrom = [&](auto record, auto end) {
    return readValueBy<T>([&](T& out) { return record != end && record->get(out); });
  };
  if (!isLongest && readFrom(last, records.rend()) != expected) {
    return whatDiffers("the last record");
  }
  const auto peekedFirst = readValueBy<T>([&](T& out) { return peekFirst(block.data(), block.size(), id, out); });
  if (!isLongest && peekedFirst != readFrom(first, records.end())) {
    return whatDiffers("peekFirst");
  }
  return "";
}

/// Where the value of the last record of a field is, and how long.
inline std::string placeDifference(const MD_Message& message, const RecordView& record) {
  std::uint8_t type = 0;
  std::uint32_t sizeBytes = 0;
  const std::uint8_t* const data = message.fieldData(record.id, type, sizeBytes);
  const std::uint8_t* const end = message.getBinary() + message.getSizeImpl();
  if (data == nullptr || type != record.type) {
    return "a record has another type";
  }
  const auto present = std::min<std::size_t>(sizeBytes, static_cast<std::size_t>(end - data));
  if (record.sizeBytes != present || (present != 0 && std::memcmp(record.data, data, present) != 0)) {
    return "a record has other value bytes";
  }
  // The head of a truncated record may itself be cut.
  return record.isTruncated || present == sizeBytes ? "" : "a truncated record is taken for a whole one";
}

/// All that can be read from the bytes.
inline std::string receivedDifference(const Bytes& bytes) {
  const HeapBlock block(bytes);
  std::unique_ptr<MD_Message> message;
  CapturedErrors errors;
  message = MD_Message::createFromBytes(block.data(), block.size());
  const RecordRange range(block.data(), block.size());
  std::vector<RecordView> records(range.begin(), range.end());
  if (range.encoding() != (message != nullptr ? message->getPB() : 0)) {
    return "the range is of another encoding";
  }
  Ids ids;
  for (const RecordView& record : records) {
    ids.push_back(record.id);
  }
  if (ids != (message != nullptr ? idsOf(*message) : Ids())) {
    return "the range has other records";
  }
  std::set<std::uint16_t> toRead(std::begin(kIds), std::end(kIds));
  std::set<std::uint16_t> seen;
  for (auto record = records.rbegin(); record != records.rend(); ++record) {
    if (seen.insert(record->id).second) {
      if (std::string difference = placeDifference(*message, *record); !difference.empty()) {
        return difference;
      }
    }
    if (record->isTruncated && record != records.rbegin()) {
      return "a record before the last is truncated";
    }
  }
  if (seen.size() < 64) {
    toRead.insert(seen.begin(), seen.end());
  }
  for (const std::uint16_t id : toRead) {
    std::string difference;
#define MD_COMPARE(T, name, code)                                             \
  if (difference.empty()) {                                                   \
    difference = peekDifference<T>(block, message.get(), records, id, #name); \
  }
    MD_VALUE_TYPES(MD_COMPARE)
#undef MD_COMPARE
    if (!difference.empty()) {
      return difference;
    }
  }
  errors.take();  // of createFromBytes() and get()
  for (const std::uint16_t id : toRead) {
    std::int32_t value = 0;
    peek(block.data(), block.size(), id, value);
    peekFirst(block.data(), block.size(), id, value);
  }
  for (const RecordView& record : range) {
    double value = 0;
    record.get(value);
  }
  return errors.take().empty() ? "" : "something was reported";
}

}  // namespace MD::test

#endif
