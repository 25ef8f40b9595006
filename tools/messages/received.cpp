#include "messages/received.h"

#include <algorithm>
#include <bitset>
#include <limits>
#include <string>

#include "base/encodings.h"
#include "base/hex.h"
#include "dictionary/dictionary.h"
#include "md/md_wire_record.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// "field 24", or "fields 24, 25 and 3 more".
std::string listOf(const std::vector<std::uint16_t>& ids) {
  constexpr std::size_t kMost = 10;
  std::string text = ids.size() == 1 ? "field " : "fields ";
  for (std::size_t i = 0; i != std::min(ids.size(), kMost); ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(ids[i]);
  }
  return ids.size() > kMost ? text + " and " + std::to_string(ids.size() - kMost) + " more" : text;
}

}  // namespace

std::unique_ptr<MD_Message> receive(const InputMessage& input) {
  auto message = MD_Message::createFromBytes(input.data, static_cast<std::uint32_t>(input.sizeBytes));
  if (message == nullptr) {
    throw notOurs(input);
  }
  return message;
}

void noteLeftOut(const MD_Message& message, const InputMessage& input, Reporter& reporter) {
  const std::size_t dropped = input.sizeBytes - message.getSizeImpl();
  if (dropped == 0) {
    return;
  }
  std::vector<std::uint16_t> unknown;
  std::vector<std::uint16_t> ofOtherType;
  std::bitset<std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1> isSeen;
  bool hasLoneByte = false;
  forEachWireRecord(input.data, input.sizeBytes, MD_FieldMap::instance(), [&](const WireRecord& record) {
    if (record.kind == WireRecord::Kind::LoneByte) {
      hasLoneByte = true;
    } else if (record.kind != WireRecord::Kind::Field && !isSeen[record.id]) {
      isSeen.set(record.id);
      (record.kind == WireRecord::Kind::UnknownField ? unknown : ofOtherType).push_back(record.id);
    }
  });
  std::string reasons;
  const auto add = [&](const std::vector<std::uint16_t>& ids, const char* one, const char* many) {
    if (!ids.empty()) {
      reasons += (reasons.empty() ? "" : "; ") + listOf(ids) + (ids.size() == 1 ? one : many) + dictionaryText();
    }
  };
  add(unknown, " is not in the ", " are not in the ");
  add(ofOtherType, " has another type in the ", " have another type in the ");
  if (hasLoneByte) {
    reasons += reasons.empty() ? "the last byte is not a field id" : "; the last byte is not a field id";
  }
  reporter.noteDropped(counted(dropped, "byte") + " dropped: " + reasons, unknown);
}

LineError notOurs(const InputMessage& input) {
  if (input.sizeBytes == 0) {
    return LineError(ReportKind::UnknownEncoding, "the message is empty");
  }
  std::string code;
  appendHex(input.data, 1, code);
  return LineError(ReportKind::UnknownEncoding, "unknown encoding byte " + code + " (" + encodingList() + ")");
}

bool listFields(const MD_Message& message, const FieldNames& names, Reporter& reporter,
                std::vector<std::uint16_t>& ids) {
  message.get_field_ids(ids);
  if (ids.size() == message.fieldCount()) {
    return true;
  }
  std::vector<bool> isSeen(std::size_t{std::numeric_limits<std::uint16_t>::max()} + 1);
  std::vector<std::uint16_t> repeated;
  auto kept = ids.rbegin();
  for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
    if (isSeen[*id]) {
      repeated.push_back(*id);
    } else {
      isSeen[*id] = true;
      *kept++ = *id;
    }
  }
  ids.erase(ids.begin(), kept.base());
  std::sort(repeated.begin(), repeated.end());
  for (auto first = repeated.begin(); first != repeated.end();) {
    const auto next = std::upper_bound(first, repeated.end(), *first);
    reporter.note(ReportKind::Repeated, names.label(*first),
                  "occurs " + std::to_string(next - first + 1) + " times; the last value is used");
    first = next;
  }
  return false;
}

bool isReadable(const MD_Message& message, std::uint16_t id, std::uint8_t type) {
  switch (type) {
#define MD_CASE(T, name, code)     \
  case code: {                     \
    T value{};                     \
    return message.get(id, value); \
  }
    MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

StoredBytes valueBytes(const MD_Message& message, std::uint16_t id) {
  std::uint8_t type = 0;
  std::uint32_t sizeBytes = 0;
  const std::uint8_t* const data = message.fieldData(id, type, sizeBytes);
  if (data == nullptr) {
    return {};
  }
  // A last record may say that it is longer than what came.
  const auto there = static_cast<std::uint32_t>(message.getBinary() + message.getSizeImpl() - data);
  return {data, std::min(sizeBytes, there)};
}

void noteUnreadable(const MD_Message& message, std::uint16_t id, const FieldNames& names, Reporter& reporter) {
  const std::uint8_t type = names.type(id);
  std::string text;
  if (!isCarried(type)) {
    text = std::string("values of type ") + typeName(type) + " are not carried by messages";
  } else {
    std::uint8_t storedType = 0;
    std::uint32_t sizeBytes = 0;
    message.fieldData(id, storedType, sizeBytes);
    const std::uint32_t there = valueBytes(message, id).sizeBytes;
    if (there < sizeBytes) {
      text = "the message is truncated within the value, of which it has " + std::to_string(there) + " of " +
             std::to_string(sizeBytes) + " bytes";
    } else {
      text = counted(sizeBytes, "byte") + ": invalid length for " + typeName(type);
    }
  }
  reporter.note(ReportKind::Unreadable, names.label(id), text);
}

}  // namespace MD::tool
