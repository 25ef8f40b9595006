#include "messages/dump.h"

#include <cstring>

#include <algorithm>
#include <string>
#include <string_view>

#include "base/encodings.h"
#include "base/hex.h"
#include "base/quoted_text.h"
#include "md/md_datatypes.h"
#include "messages/record_walk.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kBytesPerRow = 8;

constexpr const char* kDim = "\x1b[2m";
constexpr const char* kBold = "\x1b[1m";
constexpr const char* kRed = "\x1b[1;31m";
constexpr const char* kPlain = "\x1b[0m";

const char* nameOf(Part::Kind kind) noexcept {
  switch (kind) {
    case Part::Kind::Code:
      return "code";
    case Part::Kind::Mark:
      return "mark";
    case Part::Kind::Rest:
      return "rest";
    case Part::Kind::Id:
      return "id";
    case Part::Kind::Type:
      return "type";
    case Part::Kind::Length:
      return "length";
    case Part::Kind::Value:
      break;
  }
  return "value";
}

/// Shows the parts of one message.
class Dumper {
 public:
  Dumper(const std::uint8_t* bytes, const MD_FieldMap& map, bool isColored, Output& out)
      : m_bytes(bytes), m_map(map), m_isColored(isColored), m_out(out), m_text(out.text()) {}

  void show(const Record& record) {
    m_name.clear();
    if (record.isKnown) {
      m_name = printable(m_map.findById(record.id)->name);
    }
    for (const Part& part : record.parts) {
      show(record, part);
    }
  }

 private:
  /// A part's row, and rows with the rest of its bytes.
  void show(const Record& record, const Part& part) {
    const std::size_t end = part.offset + part.sizeBytes;
    const std::size_t firstEnd = std::min(end, part.offset + kBytesPerRow);
    const std::size_t start = m_text.size();
    appendBytes(part.offset, firstEnd);
    column(nameOf(part.kind), 6, part.kind == Part::Kind::Id ? kBold : "");
    column(m_name, 22, "");
    column(typeText(record, part), 10, "");
    const std::string value = valueText(record, part);
    m_text += value;
    if (part.flaw != Flaw::None) {
      m_text += value.empty() ? "" : "  ";
      m_text += m_isColored ? kRed : "";
      m_text += "! ";
      m_text += flawText(record, part);
      m_text += m_isColored ? kPlain : "";
    }
    endRow(start);
    for (std::size_t at = firstEnd; at != end;) {
      const std::size_t next = std::min(end, at + kBytesPerRow);
      const std::size_t begin = m_text.size();
      appendBytes(at, next);
      endRow(begin);
      at = next;
    }
  }

  void appendBytes(std::size_t begin, std::size_t end) {
    std::uint8_t offset[4];
    for (std::size_t i = 0; i != sizeof offset; ++i) {
      offset[i] = static_cast<std::uint8_t>(begin >> 8 * (sizeof offset - 1 - i));
    }
    m_text += m_isColored ? kDim : "";
    appendHex(begin > 0xffffff ? offset : offset + 1, begin > 0xffffff ? 4 : 3, m_text);
    m_text += m_isColored ? kPlain : "";
    m_text += "  ";
    const std::size_t start = m_text.size();
    for (std::size_t at = begin; at != end; ++at) {
      m_text += at == begin ? "" : " ";
      appendHex(m_bytes + at, 1, m_text);
    }
    m_text.resize(start + 3 * kBytesPerRow + 1, ' ');
  }

  void column(std::string_view text, std::size_t width, const char* color) {
    const bool isColored = m_isColored && *color != '\0';
    m_text += isColored ? color : "";
    m_text += text;
    m_text += isColored ? kPlain : "";
    m_text.append(text.size() < width ? width - text.size() : 0, ' ');
    m_text += ' ';
  }

  /// No row ends in spaces.
  void endRow(std::size_t start) {
    while (m_text.size() > start && m_text.back() == ' ') {
      m_text.pop_back();
    }
    m_text += '\n';
    m_out.lineDone();
  }

  static const char* typeText(const Record& record, const Part& part) noexcept {
    switch (part.kind) {
      case Part::Kind::Id:
        return record.isKnown ? typeName(record.dictionaryType) : "";
      case Part::Kind::Type:
      case Part::Kind::Length:
      case Part::Kind::Value:
        return record.hasType ? typeName(record.type) : "";
      default:
        return "";
    }
  }

  std::string flawText(const Record& record, const Part& part) const {
    switch (part.flaw) {
      case Flaw::None:
        break;
      case Flaw::NoEncoding:
        return "unknown encoding byte (" + encodingList() + ")";
      case Flaw::OtherMark:
        return "not \"QR1\"; receivers ignore these bytes";
      case Flaw::HalfId:
        return "one byte is too short for a field id; receivers drop it";
      case Flaw::UnknownField:
        return m_bytes[0] == ENCODINGS::ITERMAP ? "not in the dictionary, so the length is unknown; receivers drop the "
                                                  "id and resume parsing after it"
                                                : "not in the dictionary; receivers drop this record";
      case Flaw::NotCarried:
        return std::string("messages do not carry values of type ") + typeName(record.dictionaryType);
      case Flaw::Repeated:
        return "this field also occurs at byte " + std::to_string(record.earlier) + "; readers use the last one";
      case Flaw::OtherType:
        return std::string("the dictionary declares ") + typeName(record.dictionaryType) +
               "; receivers drop this record";
      case Flaw::TypeOutOfRange:
        return "the first byte is not 0; receivers ignore it";
      case Flaw::EndsInRecord:
        return "the message is truncated within the record";
      case Flaw::EndsInValue:
        return "the message is truncated within the value, of which it has " + std::to_string(part.sizeBytes) + " of " +
               std::to_string(part.number) + " bytes";
      case Flaw::WrongSize:
        return counted(part.sizeBytes, "byte") + ": invalid length for " + typeName(record.type);
      case Flaw::NoTerminator:
        return "the terminating NUL of the string is missing";
      case Flaw::OtherTerminator:
        return "the last byte is not NUL; readers drop it";
      case Flaw::TooLong:
        return "too long to be read";
    }
    return {};
  }

  std::string valueText(const Record& record, const Part& part) const {
    switch (part.kind) {
      case Part::Kind::Code: {
        const char* const name = encodingName(m_bytes[part.offset]);
        return name != nullptr ? name : "";
      }
      case Part::Kind::Mark:
        return part.flaw == Flaw::None ? "\"QR1\"" : "";
      case Part::Kind::Rest:
        return {};
      case Part::Kind::Id:
        return part.flaw == Flaw::HalfId ? "" : std::to_string(record.id);
      case Part::Kind::Type:
      case Part::Kind::Length:
        return part.flaw == Flaw::EndsInRecord ? "" : std::to_string(part.number);
      case Part::Kind::Value:
        break;
    }
    const bool isReadable = part.flaw != Flaw::EndsInValue &&
                            part.sizeBytes >= (part.flaw == Flaw::WrongSize ? fixedValueBytes(record.type) : 0);
    return isReadable && record.hasType && isCarried(record.type) ? textOfValue(record, part) : std::string();
  }

  std::string textOfValue(const Record& record, const Part& part) const {
    const std::uint8_t* const bytes = m_bytes + part.offset;
    const std::size_t length = part.sizeBytes;
    const bool isBigEndian = m_bytes[0] == ENCODINGS::MSGT;
    const auto number = [&](std::size_t sizeBytes) { return numberIn(bytes, sizeBytes, isBigEndian); };
    std::string text;
    switch (record.type) {
      case DATATYPES::CHAR:
        return quoted(bytes, 1);
      case DATATYPES::INT:
        appendWhole(intValue(bytes, length, isBigEndian), text);
        return text;
      case DATATYPES::INT64:
        appendWhole(static_cast<std::int64_t>(number(8)), text);
        return text;
      case DATATYPES::FLOAT:
        appendRealOrName(fromBits<float>(static_cast<std::uint32_t>(number(4))), text);
        return text;
      case DATATYPES::DOUBLE:
        appendRealOrName(fromBits<double>(number(8)), text);
        return text;
      case DATATYPES::STRING:
        return quoted(bytes, length == 0 ? 0 : length - 1);
      case DATATYPES::BUFFER:
        return counted(length, "byte");
      case DATATYPES::DATETIME:
        return dateTimeText(bytes);
      default: {
        // Little-endian in every encoding, like a date-time.
        const std::uint64_t ns = numberIn(bytes, 8, false);
        appendWhole(ns, text);
        text += " (";
        appendIsoTime(ns, TimeZone(), text);
        text += ')';
        return text;
      }
    }
  }

  static std::string quoted(const std::uint8_t* bytes, std::size_t length) {
    const void* const text = bytes;
    return inQuotes({static_cast<const char*>(text), length});
  }

  static std::int32_t intValue(const std::uint8_t* bytes, std::size_t length, bool isBigEndian) {
    switch (length) {
      case 1:
        return bytes[0];
      case 2:
        return static_cast<std::int16_t>(numberIn(bytes, 2, isBigEndian));
      default:
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(numberIn(bytes, 4, isBigEndian)));
    }
  }

  template <class T, class Bits>
  static T fromBits(Bits bits) {
    static_assert(sizeof(T) == sizeof(Bits));
    T value{};
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }

  static std::string dateTimeText(const std::uint8_t* from) {
    char bytes[8];
    std::memcpy(bytes, from, sizeof bytes);
    MD_DateTime value;
    MD_DateTime::deserialize(value, bytes);
    std::string text;
    appendWhole(std::int32_t{value.date()}, text);
    text += ' ';
    appendWhole(std::int32_t{value.time()}, text);
    text += " (";
    appendWhole(std::int16_t{value.exch_gmt_offset()}, text);
    text += ')';
    return text;
  }

  const std::uint8_t* m_bytes;
  const MD_FieldMap& m_map;
  bool m_isColored;
  Output& m_out;
  std::string& m_text;
  std::string m_name;  // of the current record
};

}  // namespace

DumpResult writeDump(const std::uint8_t* bytes, std::size_t sizeBytes, const MD_FieldMap& map, bool isColored,
                     Output& out) {
  DumpResult result;
  Dumper dumper(bytes, map, isColored, out);
  RecordWalk walk(map);
  walk.forEach(bytes, sizeBytes, [&](const Record& record) {
    dumper.show(record);
    result.isTruncated = record.isTruncated;
    for (const Part& part : record.parts) {
      result.flaws += part.flaw == Flaw::None ? 0U : 1U;
      result.hasUnknown = result.hasUnknown || part.flaw == Flaw::UnknownField;
    }
  });
  return result;
}

}  // namespace MD::tool
