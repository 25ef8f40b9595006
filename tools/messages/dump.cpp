#include "messages/dump.h"

#include <cstring>

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

#include "base/diagnostics.h"
#include "base/encodings.h"
#include "base/hex.h"
#include "base/utf8.h"
#include "md/md_datatypes.h"
#include "text/time_text.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr std::size_t kBytesPerRow = 8;
constexpr std::size_t kLongestView = 65535;

constexpr const char* kDim = "\x1b[2m";
constexpr const char* kBold = "\x1b[1m";
constexpr const char* kRed = "\x1b[1;31m";
constexpr const char* kPlain = "\x1b[0m";

/// The number of bytes that a value of this type has, 0 when it varies or is none that messages carry.
std::size_t widthOf(std::uint8_t type) noexcept {
  switch (type) {
    case DATATYPES::CHAR:
      return 1;
    case DATATYPES::INT:
    case DATATYPES::FLOAT:
      return 4;
    case DATATYPES::DOUBLE:
    case DATATYPES::INT64:
    case DATATYPES::DATETIME:
    case DATATYPES::EPOCH_NSEC:
      return 8;
    default:
      return 0;
  }
}

/// The number of bytes that `IterMap` sets aside for a type without a length word.
std::size_t iterMapWidthOf(std::uint8_t type) noexcept {
  constexpr std::uint8_t kWidths[] = {0, 1, 4, 2, 4, 8, 0, 0, 0, 4, 4, 12, 0, 0, 0, 4, 4, 4, 4, 8, 8, 0, 8, 0};
  return type < sizeof kWidths ? kWidths[type] : 0;
}

class Dumper {
 public:
  Dumper(const std::uint8_t* bytes, std::size_t sizeBytes, const MD_FieldMap& map, bool isColored, std::string& out)
      : m_bytes(bytes), m_sizeBytes(sizeBytes), m_map(map), m_isColored(isColored), m_out(out) {}

  DumpResult run() {
    if (m_sizeBytes == 0) {
      return m_result;
    }
    switch (m_bytes[0]) {
      case ENCODINGS::MINT:
        codeRow();
        walk(&Dumper::mIntRecord);
        break;
      case ENCODINGS::ITERMAP:
        codeRow();
        walk(&Dumper::iterMapRecord);
        break;
      case ENCODINGS::MSGT:
        msgTHeader();
        walk(&Dumper::msgTRecord);
        break;
      default:
        row(1, "code", {}, {}, {}, "no encoding begins with this byte (" + encodingList() + ")");
        if (left() != 0) {
          row(left(), "rest");
        }
    }
    return m_result;
  }

 private:
  /// A field as it is shown in each row of its record.
  struct Shown {
    std::uint16_t id = 0;
    bool isKnown = false;
    std::uint8_t type = 0;
    std::string name;
  };

  std::size_t left() const noexcept { return m_sizeBytes - m_at; }

  /// The number in the next bytes, of which `sizeBytes` are there.
  std::uint64_t number(std::size_t sizeBytes, bool isBigEndian) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i != sizeBytes; ++i) {
      const std::size_t shift = 8 * (isBigEndian ? sizeBytes - 1 - i : i);
      value |= std::uint64_t{m_bytes[m_at + i]} << shift;
    }
    return value;
  }

  void codeRow() { row(1, "code", {}, {}, encodingName(m_bytes[m_at])); }

  void walk(void (Dumper::*record)()) {
    while (left() != 0) {
      ++m_result.records;
      (this->*record)();
    }
  }

  Shown shownOf(std::uint16_t id) const {
    Shown shown;
    shown.id = id;
    const auto row = m_map.findById(id);
    shown.isKnown = row != m_map.end();
    shown.type = shown.isKnown ? row->type : std::uint8_t{0};
    shown.name = shown.isKnown ? printable(row->name) : std::string();
    return shown;
  }

  static std::string typeOf(const Shown& shown) { return shown.isKnown ? typeName(shown.type) : ""; }

  /// One part that is there: its row, and rows with the rest of its bytes.
  void row(std::size_t sizeBytes, std::string_view part, std::string_view field = {}, std::string_view type = {},
           std::string_view value = {}, std::string_view flaw = {}) {
    const std::size_t first = std::min(sizeBytes, kBytesPerRow);
    const std::size_t start = m_out.size();
    appendBytes(first);
    column(part, 6, part == "id" ? kBold : "");
    column(field, 22, "");
    column(type, 10, "");
    m_out += value;
    if (!flaw.empty()) {
      ++m_result.flaws;
      m_out += value.empty() ? "" : "  ";
      m_out += m_isColored ? kRed : "";
      m_out += "! ";
      m_out += flaw;
      m_out += m_isColored ? kPlain : "";
    }
    endRow(start);
    for (std::size_t rest = sizeBytes - first; rest != 0;) {
      const std::size_t count = std::min(rest, kBytesPerRow);
      const std::size_t begin = m_out.size();
      appendBytes(count);
      endRow(begin);
      rest -= count;
    }
  }

  void appendBytes(std::size_t count) {
    std::uint8_t offset[4];
    for (std::size_t i = 0; i != sizeof offset; ++i) {
      offset[i] = static_cast<std::uint8_t>(m_at >> 8 * (sizeof offset - 1 - i));
    }
    m_out += m_isColored ? kDim : "";
    appendHex(m_at > 0xffffff ? offset : offset + 1, m_at > 0xffffff ? 4 : 3, m_out);
    m_out += m_isColored ? kPlain : "";
    m_out += "  ";
    const std::size_t start = m_out.size();
    for (std::size_t i = 0; i != count; ++i) {
      m_out += i == 0 ? "" : " ";
      appendHex(m_bytes + m_at + i, 1, m_out);
    }
    m_out.resize(start + 3 * kBytesPerRow + 1, ' ');
    m_at += count;
  }

  void column(std::string_view text, std::size_t width, const char* color) {
    const bool isColored = m_isColored && *color != '\0';
    m_out += isColored ? color : "";
    m_out += text;
    m_out += isColored ? kPlain : "";
    m_out.append(text.size() < width ? width - text.size() : 0, ' ');
    m_out += ' ';
  }

  /// No row ends in blanks.
  void endRow(std::size_t start) {
    while (m_out.size() > start && m_out.back() == ' ') {
      m_out.pop_back();
    }
    m_out += '\n';
  }

  /// The id, or what is there of it. @return false when the message ends
  /// @param typeBehind  the type code in the record, where there is one: with another than the dictionary's the record
  ///                    is none of the field's
  bool idRow(bool isBigEndian, Shown& shown, const char* unknown, std::optional<std::uint8_t> typeBehind = {}) {
    if (left() < 2) {
      m_result.isTruncated = true;
      row(left(), "id", {}, {}, {}, "one byte is too few for an id; receivers cut it off");
      return false;
    }
    shown = shownOf(static_cast<std::uint16_t>(number(2, isBigEndian)));
    const std::size_t start = m_at;
    std::string flaw;
    if (!shown.isKnown) {
      flaw = unknown;
    } else if (!isCarried(shown.type)) {
      flaw = std::string("no message carries values of type ") + typeName(shown.type);
    } else if (typeBehind && *typeBehind != shown.type) {
      // Said beside the type.
    } else if (const auto [found, isNew] = m_firstRecords.emplace(shown.id, start); !isNew) {
      flaw = "this field stands at byte " + std::to_string(found->second) + ", too; the last one counts";
      found->second = start;
    }
    row(2, "id", shown.name, typeOf(shown), std::to_string(shown.id), flaw);
    return true;
  }

  /// A length of `sizeBytes`. What is missing of it at the end of the message reads as 0.
  std::size_t lengthRow(std::size_t sizeBytes, bool isBigEndian, const Shown& shown) {
    if (left() < sizeBytes) {
      cutRow("length", shown, "the message ends inside the record");
      return 0;
    }
    const auto length = static_cast<std::size_t>(number(sizeBytes, isBigEndian));
    row(sizeBytes, "length", shown.name, typeOf(shown), std::to_string(length));
    return length;
  }

  /// A part of which some bytes, or all, are missing at the end of the message.
  void cutRow(std::string_view part, const Shown& shown, std::string_view flaw) {
    m_result.isTruncated = true;
    row(left(), part, shown.name, typeOf(shown), {}, flaw);
  }

  void mIntRecord() {
    Shown shown;
    if (!idRow(false, shown, "not in the dictionary; receivers cut this record out")) {
      return;
    }
    const bool isWhole = left() != 0;
    const std::size_t length = lengthRow(1, false, shown);
    if (isWhole) {
      valueRow(shown, length, false);
    }
  }

  void iterMapRecord() {
    Shown shown;
    if (!idRow(false, shown,
               "not in the dictionary, so its length is not known; receivers cut the id out and go on behind it")) {
      return;
    }
    if (!shown.isKnown) {
      return;
    }
    const std::size_t wordBytes = shown.type == DATATYPES::STRING ? 2U : shown.type == DATATYPES::BUFFER ? 4U : 0U;
    if (wordBytes == 0) {
      if (const std::size_t width = iterMapWidthOf(shown.type); width != 0) {
        valueRow(shown, width, false);
      }
      return;
    }
    const bool isWhole = left() >= wordBytes;
    const std::size_t length = lengthRow(wordBytes, false, shown);
    if (isWhole) {
      valueRow(shown, length, false);
    }
  }

  void msgTHeader() {
    codeRow();
    constexpr std::string_view kMark = "QR1";
    const std::size_t count = std::min(left(), kMark.size());
    if (count == 0) {
      return;
    }
    const bool isMark = count == kMark.size() && std::memcmp(m_bytes + m_at, kMark.data(), count) == 0;
    row(count, "mark", {}, {}, isMark ? "\"QR1\"" : "", isMark ? "" : "not \"QR1\"; receivers do not look");
  }

  void msgTRecord() {
    Shown shown;
    constexpr std::size_t kTypeAt = 3;
    const auto typeBehind = left() > kTypeAt ? std::optional(m_bytes[m_at + kTypeAt]) : std::nullopt;
    if (!idRow(true, shown, "not in the dictionary; receivers cut this record out", typeBehind)) {
      return;
    }
    if (left() < 2) {
      cutRow("type", shown, "the message ends inside the record");
      return;
    }
    const std::uint64_t word = number(2, true);
    const auto type = static_cast<std::uint8_t>(word & 0xff);
    std::string flaw;
    const bool isOther = shown.isKnown && type != shown.type;
    if (isOther) {
      flaw = std::string("the dictionary says ") + typeName(shown.type) + "; receivers cut this record out";
    } else if (word > 0xff) {
      flaw = "the first byte is not 0; receivers do not look";
    }
    row(2, "type", shown.name, typeName(type), std::to_string(type), flaw);
    if (isOther || !shown.isKnown) {
      shown.type = type;
      shown.isKnown = true;  // by the record itself
    }
    const bool isWhole = left() >= 4;
    const std::size_t length = lengthRow(4, true, shown);
    if (isWhole) {
      valueRow(shown, length, true);
    }
  }

  void valueRow(const Shown& shown, std::size_t length, bool isBigEndian) {
    if (length > left()) {
      cutRow("value", shown,
             "the message ends inside the value, of which it has " + std::to_string(left()) + " of " +
                 std::to_string(length) + " bytes");
      return;
    }
    const std::string flaw = flawOf(shown, length);
    const std::string value =
        flaw.empty() || length >= widthOf(shown.type) ? valueText(shown, length, isBigEndian) : "";
    if (length != 0 || (shown.isKnown && isCarried(shown.type))) {
      row(length, "value", shown.name, typeOf(shown), value, flaw);
    }
  }

  /// What is wrong with a value of this length, all of which is there.
  std::string flawOf(const Shown& shown, std::size_t length) const {
    if (!shown.isKnown || !isCarried(shown.type)) {
      return {};
    }
    const std::size_t width = widthOf(shown.type);
    const bool isShortInt = shown.type == DATATYPES::INT && m_bytes[0] == ENCODINGS::MINT;
    if (isShortInt ? length != 1 && length != 2 && length != 4 : width != 0 && length != width) {
      return std::to_string(length) + (length == 1 ? " byte is" : " bytes are") + " no " + typeName(shown.type);
    }
    if (shown.type == DATATYPES::STRING) {
      if (length == 0) {
        return "the NUL that ends a string is missing";
      }
      if (m_bytes[m_at + length - 1] != 0) {
        return "the last byte, which receivers leave away, is no NUL";
      }
    }
    const std::size_t longest = shown.type == DATATYPES::STRING ? kLongestView + 1 : kLongestView;
    return width == 0 && length > longest ? "longer than what can be read" : std::string();
  }

  std::string valueText(const Shown& shown, std::size_t length, bool isBigEndian) const {
    if (!shown.isKnown || !isCarried(shown.type)) {
      return {};
    }
    const std::size_t width = std::min<std::size_t>(length, 8);
    std::string text;
    switch (shown.type) {
      case DATATYPES::CHAR:
        return quoted(1);
      case DATATYPES::INT:
        appendWhole(intValue(length, isBigEndian), text);
        return text;
      case DATATYPES::INT64:
        appendWhole(static_cast<std::int64_t>(number(width, isBigEndian)), text);
        return text;
      case DATATYPES::FLOAT:
        appendRealOrName(fromBits<float>(static_cast<std::uint32_t>(number(4, isBigEndian))), text);
        return text;
      case DATATYPES::DOUBLE:
        appendRealOrName(fromBits<double>(number(8, isBigEndian)), text);
        return text;
      case DATATYPES::STRING:
        return quoted(length == 0 ? 0 : length - 1);
      case DATATYPES::BUFFER:
        return std::to_string(length) + (length == 1 ? " byte" : " bytes");
      case DATATYPES::DATETIME:
        return dateTimeText();
      default:
        // As it lies in memory in every encoding, and so is a date-time.
        appendWhole(number(8, false), text);
        text += " (";
        appendIsoTime(number(8, false), TimeZone(), text);
        text += ')';
        return text;
    }
  }

  std::string quoted(std::size_t length) const {
    std::string text(length, '\0');
    if (length != 0) {
      std::memcpy(text.data(), m_bytes + m_at, length);
    }
    return inQuotes(text);
  }

  std::int32_t intValue(std::size_t length, bool isBigEndian) const {
    switch (length) {
      case 1:
        return m_bytes[m_at];
      case 2:
        return static_cast<std::int16_t>(number(2, isBigEndian));
      default:
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(number(4, isBigEndian)));
    }
  }

  template <class T, class Bits>
  static T fromBits(Bits bits) {
    static_assert(sizeof(T) == sizeof(Bits));
    T value{};
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }

  std::string dateTimeText() const {
    char bytes[8];
    std::memcpy(bytes, m_bytes + m_at, sizeof bytes);
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
  std::size_t m_sizeBytes;
  const MD_FieldMap& m_map;
  bool m_isColored;
  std::string& m_out;
  std::size_t m_at = 0;
  std::map<std::uint16_t, std::size_t> m_firstRecords;  // by id, where the record stands
  DumpResult m_result;
};

}  // namespace

DumpResult appendDump(const std::uint8_t* bytes, std::size_t sizeBytes, const MD_FieldMap& map, bool isColored,
                      std::string& out) {
  return Dumper(bytes, sizeBytes, map, isColored, out).run();
}

}  // namespace MD::tool
