#include "nats/subject.h"

#include <algorithm>
#include <array>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "md/md_peek.h"
#include "text/percent_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

bool isKept(unsigned char byte) noexcept {
  return byte > 0x20 && byte < 0x7f && byte != '.' && byte != '*' && byte != '>' && byte != '%';
}

std::optional<unsigned> digitOf(char digit) noexcept {
  const char* const found = std::find(kHexDigits, kHexDigits + 16, digit);
  return found == kHexDigits + 16 ? std::nullopt : std::optional<unsigned>(static_cast<unsigned>(found - kHexDigits));
}

/// What is wrong with the text of a template; empty for nothing.
std::string complaintAbout(const std::string& text) {
  if (text.empty()) {
    return "it is empty";
  }
  if (text.front() == '.' || text.back() == '.' || text.find("..") != text.npos) {
    return "it has an empty token";
  }
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte <= 0x20 || byte >= 0x7f || c == '*' || c == '>') {
      return "a subject to publish to must not contain white space, wildcards or characters outside ASCII";
    }
  }
  // What received values must not choose: the server's own subjects and the inboxes of other clients.
  if (text.front() == '{' || text.front() == '$' || text.rfind("_INBOX", 0) == 0) {
    return "it must begin with fixed text, other than $ or _INBOX";
  }
  return {};
}

template <class T>
bool readDigits(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint16_t id, std::string& digits) {
  T value{};
  if (!peek(bytes, sizeBytes, id, value)) {
    return false;
  }
  if constexpr (std::is_same_v<T, MD_EpochNS>) {
    digits = std::to_string(value.get());
  } else if constexpr (std::is_same_v<T, char>) {
    digits.assign(1, value);
  } else {
    digits = std::to_string(value);
  }
  return true;
}

}  // namespace

void appendToken(std::string_view value, std::string& subject) {
  appendPercentText(
      value, [&](std::size_t i) { return isKept(static_cast<unsigned char>(value[i])); }, subject);
}

std::optional<std::string> tokenValue(std::string_view token) {
  if (token.empty()) {
    return std::nullopt;
  }
  std::string value;
  if (token == "%") {
    return value;
  }
  for (std::size_t i = 0; i != token.size(); ++i) {
    if (token[i] != '%') {
      value += token[i];
      continue;
    }
    if (token.size() - i < 3) {
      return std::nullopt;
    }
    const auto high = digitOf(token[i + 1]);
    const auto low = digitOf(token[i + 2]);
    if (!high || !low) {
      return std::nullopt;
    }
    value += static_cast<char>(*high << 4 | *low);
    i += 2;
  }
  // Bytes have one token each.
  std::string again;
  appendToken(value, again);
  return again == token ? std::optional<std::string>(value) : std::nullopt;
}

std::uint64_t partitionOf(std::string_view value, std::uint64_t partitions) noexcept {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : value) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  }
  return hash % partitions;
}

SubjectTemplate::SubjectTemplate(const std::string& text, const FieldNames& names) {
  const auto refuse = [&](const std::string& why) { throw UsageError("--subject " + inQuotes(text) + ": " + why); };
  if (const std::string complaint = complaintAbout(text); !complaint.empty()) {
    refuse(complaint);
  }
  try {
    std::size_t begin = 0;
    for (std::size_t open = text.find('{'); open != text.npos; open = text.find('{', begin)) {
      const std::size_t close = text.find('}', open);
      if (close == text.npos) {
        refuse("a brace is not closed");
      }
      addField(text.substr(begin, open - begin), text.substr(open + 1, close - open - 1), names);
      begin = close + 1;
    }
    m_end = text.substr(begin);
  } catch (const LineError& error) {
    refuse("field " + printable(error.field()) + ": " + error.what());
  }
  if (m_end.find('}') != m_end.npos) {
    refuse("a brace is not opened");
  }
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('.', begin), text.size());
    const std::string token = text.substr(begin, end - begin);
    m_wildcard += (m_wildcard.empty() ? "" : ".") + (token.find('{') == token.npos ? token : "*");
    begin = end + 1;
  }
}

void SubjectTemplate::addField(const std::string& text, const std::string& key, const FieldNames& names) {
  Part part;
  part.text = text;
  const std::size_t percent = key.rfind('%');
  part.field = names.match(key.substr(0, percent));
  if (percent != key.npos) {
    const std::string number = key.substr(percent + 1);
    constexpr std::size_t kMostDigits = 9;
    part.partitions = isOfDigits(number) && number.size() <= kMostDigits ? std::stoull(number) : 0;
    if (part.partitions == 0) {
      throw LineError(inQuotes(number) + " is not a number of partitions", key.substr(0, percent));
    }
  }
  constexpr std::array kTypes{DATATYPES::CHAR, DATATYPES::INT, DATATYPES::INT64, DATATYPES::EPOCH_NSEC,
                              DATATYPES::STRING};
  if (std::find(kTypes.begin(), kTypes.end(), part.field.type) == kTypes.end()) {
    throw LineError("values of its type cannot be in a subject; those of CHAR, INT, INT64, EPOCH_NSEC and STRING can",
                    key);
  }
  m_parts.push_back(part);
}

bool SubjectTemplate::readValue(const std::uint8_t* bytes, std::uint32_t sizeBytes, const Field& field,
                                std::string_view& value) {
  bool isThere = false;
  switch (field.type) {
    case DATATYPES::CHAR:
      isThere = readDigits<char>(bytes, sizeBytes, field.id, m_digits);
      break;
    case DATATYPES::INT:
      isThere = readDigits<std::int32_t>(bytes, sizeBytes, field.id, m_digits);
      break;
    case DATATYPES::INT64:
      isThere = readDigits<std::int64_t>(bytes, sizeBytes, field.id, m_digits);
      break;
    case DATATYPES::EPOCH_NSEC:
      isThere = readDigits<MD_EpochNS>(bytes, sizeBytes, field.id, m_digits);
      break;
    default: {
      StringView16 text;
      isThere = peek(bytes, sizeBytes, field.id, text);
      value = isThere ? std::string_view(text) : std::string_view();
      return isThere;
    }
  }
  value = isThere ? std::string_view(m_digits) : std::string_view();
  return isThere;
}

void SubjectTemplate::append(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::string& subject) {
  const std::size_t start = subject.size();
  const auto checkLength = [&](std::size_t more) {
    if (subject.size() - start + more > kMostBytes) {
      throw LineError("its subject would be longer than " + std::to_string(kMostBytes) + " bytes");
    }
  };
  for (const Part& part : m_parts) {
    subject += part.text;
    std::string_view value;
    const bool isThere = readValue(bytes, sizeBytes, part.field, value);
    checkLength(value.size());
    if (part.partitions != 0) {
      subject += std::to_string(partitionOf(value, part.partitions));
    } else if (isThere) {
      appendToken(value, subject);
    } else {
      subject += kNoValue;
    }
  }
  subject += m_end;
  checkLength(0);
}

}  // namespace MD::tool
