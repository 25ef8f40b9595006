// A message as plain containers: its bytes, and where each field's record starts. Every rule of the three encodings is
// spelled out once, the slow and obvious way, for the comparison with the library's.
#ifndef MD_TESTS_SUPPORT_REFERENCE_MODEL_H
#define MD_TESTS_SUPPORT_REFERENCE_MODEL_H

#include <cstdint>
#include <cstring>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "md/md_fieldmap.h"
#include "md/md_variant.h"
#include "support/captured_errors.h"
#include "support/messages.h"

namespace MD::test {

/// A value with its type. `raw` is what rawOf() gives: numbers as they are in memory, the characters of a string
/// without a terminator, the bytes of a buffer.
struct ModelValue {
  std::uint8_t type;
  std::string raw;
};

class ReferenceMessage {
 public:
  enum Encoding : std::uint8_t { kIterMap = 1, kMInt = 6, kMsgT = 70 };

  explicit ReferenceMessage(Encoding encoding) : m_encoding(encoding), m_bytes(header(encoding)) {}

  const Bytes& bytes() const { return m_bytes; }
  std::size_t fieldCount() const { return m_positions.size(); }
  bool exists(std::uint16_t id) const { return m_positions.count(id) != 0; }
  bool isEmpty() const { return m_bytes.size() <= header(m_encoding).size(); }

  Ids ids() const {
    Ids list;
    for (std::size_t position = header(m_encoding).size(); position + 2 <= m_bytes.size();) {
      const Record record = recordAt(position);
      list.push_back(record.id);
      position += record.headBytes + record.valueBytes;
    }
    return list;
  }

  std::optional<std::string> get(std::uint16_t id, std::uint8_t type) {
    const std::optional<std::size_t> position = find(id);
    if (!position) {
      return std::nullopt;
    }
    const Record record = recordAt(*position);
    const std::size_t start = *position + record.headBytes;
    if (record.type == type && fits(*position, record)) {
      if (const auto value = decode(type, start, record.valueBytes)) {
        return value;
      }
    }
    if (m_encoding == kIterMap) {
      fail("IterMap Error: Attempting to GET a field of incorrect type OR overflow error", id, record.type,
           record.valueBytes);
    } else if (m_encoding == kMsgT) {
      fail("MsgT Error: Attempting to GET a field of incorrect type!", record.id, record.type, record.valueBytes);
    }
    return std::nullopt;
  }

  /// Type, size and offset of a field's value.
  struct Located {
    std::uint8_t type;
    std::uint32_t sizeBytes;
    std::size_t offset;
  };
  std::optional<Located> locate(std::uint16_t id) const {
    const std::optional<std::size_t> position = find(id);
    if (!position) {
      return std::nullopt;
    }
    const Record record = recordAt(*position);
    const std::uint8_t type = m_encoding == kMInt ? dictionary().at(id).type : record.type;
    return Located{type, static_cast<std::uint32_t>(record.valueBytes),
                   std::min(*position + record.headBytes, m_bytes.size())};
  }

  bool add(std::uint16_t id, const ModelValue& value) { return !exists(id) && append(id, value); }

  bool update(std::uint16_t id, const ModelValue& value) {
    const std::optional<std::size_t> position = find(id);
    if (!position) {
      return append(id, value);
    }
    const Record record = recordAt(*position);
    // An integer of mInt is only ever overwritten in its full width.
    const std::size_t needed = m_encoding == kMInt && value.type == DATATYPES::INT ? 4 : encoded(value).size();
    const bool isSameType = m_encoding == kMInt || record.type == value.type;
    const bool isSameLength = record.valueBytes == needed;
    if (!isSameType && (m_encoding == kMsgT || isSameLength)) {
      fail(m_encoding == kMsgT ? "MsgT Error: Attempting to UPDATE a field with an incorrect type!"
                               : "IterMap Error: Attempting to UPDATE a field with incorrect type",
           id, record.type, needed);
      return false;
    }
    if (isSameLength && fits(*position, record)) {
      std::string bytes = encoded(value);
      if (m_encoding == kMInt && value.type == DATATYPES::INT) {
        bytes = value.raw;
      }
      std::copy(bytes.begin(), bytes.end(), m_bytes.begin() + offset(*position + record.headBytes));
      return true;
    }
    erase(id);
    return append(id, value);
  }

  bool erase(std::uint16_t id) {
    const std::optional<std::size_t> position = find(id);
    if (isEmpty() || !position) {
      return false;
    }
    removeRecord(*position);
    m_positions.erase(id);
    index(*position);
    return true;
  }

  template <class List>
  bool eraseMany(const List& list) {
    if (m_encoding == kMInt && isEmpty()) {
      return false;
    }
    if (list.empty()) {
      return true;
    }
    if (isEmpty()) {
      return false;
    }
    std::size_t found = 0;
    std::map<std::size_t, std::uint16_t> byPosition;
    for (const std::uint16_t id : list) {
      if (const auto position = find(id)) {
        ++found;
        byPosition[*position] = id;
      }
    }
    if (found == 0) {
      return false;
    }
    // From the back, so that the positions of what is still to be removed stay right.
    for (auto record = byPosition.rbegin(); record != byPosition.rend(); ++record) {
      removeRecord(record->first);
      m_positions.erase(record->second);
    }
    index(byPosition.begin()->first);
    return found == list.size();
  }

  void clear() {
    const Bytes fresh = header(m_encoding);
    // The header is kept as it is; what was missing of it is completed.
    while (m_bytes.size() < fresh.size()) {
      m_bytes.push_back(fresh[m_bytes.size()]);
    }
    m_bytes.resize(fresh.size());
    m_positions.clear();
  }

  void setBinary(const Bytes& bytes) {
    m_bytes = bytes;
    m_positions.clear();
    index(header(m_encoding).size());
  }

  /// Adds or updates each field that can be read from `source`, which may be this message.
  void copyFrom(ReferenceMessage& source) {
    for (const std::uint16_t id : source.ids()) {
      const auto row = dictionary().find(id);
      if (row == dictionary().end() || !isValueType(row->second.type)) {
        continue;
      }
      const auto raw = source.get(id, row->second.type);
      m_errors += &source == this ? "" : source.takeErrors();
      if (raw) {
        const ModelValue value{row->second.type, *raw};
        static_cast<void>(add(id, value) || update(id, value));
      }
    }
  }

  void swap(ReferenceMessage& other) {
    m_bytes.swap(other.m_bytes);
    m_positions.swap(other.m_positions);
  }

  /// The formatted text, no more than `limit` characters of it; fields that cannot be read print as nothing held.
  std::string print(std::size_t limit = std::string::npos) {
    std::string out;
    for (const std::uint16_t id : ids()) {
      if (id == 65535 || out.size() > limit) {
        break;
      }
      const auto row = dictionary().find(id);
      std::string label = row == dictionary().end() ? std::to_string(id) : row->second.name;
      label.resize(std::max<std::size_t>(label.size(), 22), ' ');
      std::ostringstream line;
      line << label << " = " << (row == dictionary().end() ? MD_Variant() : variant(id, row->second.type)) << '\n';
      out += line.str();
    }
    return out.substr(0, limit);
  }

  /// What has been reported since the last call.
  std::string takeErrors() { return std::exchange(m_errors, {}); }

 private:
  struct Row {
    std::string name;
    std::uint8_t type;
  };

  struct Record {
    std::uint16_t id;
    std::uint8_t type;
    std::size_t headBytes;
    std::size_t valueBytes;
  };

  /// The rows of the process's dictionary as it was when the first model asked.
  static const std::map<std::uint16_t, Row>& dictionary() {
    static const std::map<std::uint16_t, Row> rows = [] {
      std::map<std::uint16_t, Row> result;
      for (const auto& row : MD_FieldMap::instance()) {
        result[row.id] = {row.name, row.type};
      }
      return result;
    }();
    return rows;
  }

  static bool isValueType(std::uint8_t type) {
    return std::any_of(valueTypes().begin(), valueTypes().end(),
                       [&](const ValueType& row) { return row.code == type; });
  }

  static Bytes header(Encoding encoding) {
    return encoding == kMsgT ? Bytes{70, 'Q', 'R', '1'} : Bytes{static_cast<std::uint8_t>(encoding)};
  }

  static std::ptrdiff_t offset(std::size_t position) { return static_cast<std::ptrdiff_t>(position); }

  /// The byte at a position; bytes after the end read as zero.
  std::uint8_t byteAt(std::size_t position) const { return position < m_bytes.size() ? m_bytes[position] : 0; }

  std::uint32_t numberAt(std::size_t position, std::size_t count) const {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < count; ++i) {
      number = number << 8 | byteAt(m_encoding == kMsgT ? position + i : position + count - 1 - i);
    }
    return number;
  }

  Record recordAt(std::size_t position) const {
    const auto id = static_cast<std::uint16_t>(numberAt(position, 2));
    const auto row = dictionary().find(id);
    const std::uint8_t type = row == dictionary().end() ? std::uint8_t{0} : row->second.type;
    switch (m_encoding) {
      case kMInt:
        return {id, type, 3, byteAt(position + 2)};
      case kMsgT:
        return {id, byteAt(position + 3), 8, numberAt(position + 4, 4)};
      case kIterMap:
        break;
    }
    if (type == DATATYPES::STRING) {
      return {id, type, 4, numberAt(position + 2, 2)};
    }
    if (type == DATATYPES::BUFFER) {
      return {id, type, 6, numberAt(position + 2, 4)};
    }
    static const std::map<std::uint8_t, std::size_t> widths = {{1, 1},  {2, 4},  {3, 2},   {4, 4},  {5, 8},
                                                               {9, 4},  {10, 4}, {11, 12}, {16, 4}, {17, 4},
                                                               {18, 4}, {19, 8}, {20, 8},  {22, 8}};
    const auto width = widths.find(type);
    return {id, type, 2, width == widths.end() ? 0 : width->second};
  }

  bool fits(std::size_t position, const Record& record) const {
    return position + record.headBytes + record.valueBytes <= m_bytes.size();
  }

  /// Where records overlap, a position can outlive its bytes: such a field is there, and has no value.
  std::optional<std::size_t> find(std::uint16_t id) const {
    const auto found = m_positions.find(id);
    return found == m_positions.end() || found->second >= m_bytes.size() ? std::nullopt
                                                                         : std::optional<std::size_t>(found->second);
  }

  /// A value as it is stored.
  std::string encoded(const ModelValue& value) const {
    std::string bytes = value.raw;
    switch (value.type) {
      case DATATYPES::STRING:
        return bytes + '\0';
      case DATATYPES::INT:
        if (m_encoding == kMInt) {
          std::int32_t number = 0;
          std::memcpy(&number, bytes.data(), sizeof number);
          bytes.resize(number < 0 || number > 32767 ? 4 : number > 127 ? 2 : 1);
        }
        [[fallthrough]];
      case DATATYPES::INT64:
      case DATATYPES::FLOAT:
      case DATATYPES::DOUBLE:
        if (m_encoding == kMsgT) {
          std::reverse(bytes.begin(), bytes.end());
        }
        return bytes;
      default:
        return bytes;
    }
  }

  std::string slice(std::size_t position, std::size_t count) const {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i) {
      bytes += static_cast<char>(byteAt(position + i));
    }
    return bytes;
  }

  std::optional<std::string> decode(std::uint8_t type, std::size_t start, std::size_t length) const {
    switch (type) {
      case DATATYPES::STRING:
        if (m_encoding == kIterMap && length == 0) {
          return slice(start, m_bytes.size() - start >= 65536 ? 65535 : 0);
        }
        if (length > 65536) {
          return std::nullopt;
        }
        return slice(start, length == 0 ? 0 : length - 1);
      case DATATYPES::BUFFER:
        if (length > 65535) {
          return std::nullopt;
        }
        return slice(start, length);
      case DATATYPES::CHAR:
        return slice(start, 1);
      case DATATYPES::INT:
        if (m_encoding == kMInt) {
          switch (length) {
            case 1:
              return slice(start, 1) + std::string(3, '\0');
            case 2:
              return slice(start, 2) + std::string(2, (byteAt(start + 1) & 0x80) != 0 ? '\xFF' : '\0');
            case 4:
              return slice(start, 4);
            default:
              return std::nullopt;
          }
        }
        return number(start, 4);
      case DATATYPES::FLOAT:
        return number(start, 4);
      case DATATYPES::INT64:
      case DATATYPES::DOUBLE:
        return number(start, 8);
      default:
        return slice(start, 8);
    }
  }

  std::string number(std::size_t start, std::size_t count) const {
    std::string bytes = slice(start, count);
    if (m_encoding == kMsgT) {
      std::reverse(bytes.begin(), bytes.end());
    }
    return bytes;
  }

  bool append(std::uint16_t id, const ModelValue& value) {
    const std::string bytes = encoded(value);
    const auto row = dictionary().find(id);
    if (row == dictionary().end() || row->second.type != value.type) {
      fail(m_encoding == kMInt   ? "mInt Error: Attempting to ADD a field with incorrect id!"
           : m_encoding == kMsgT ? "MsgT Error: Attempting to ADD a field with incorrect id or type!"
                                 : "IterMap Error: Attempting to ADD a field with incorrect id or type",
           id, value.type, bytes.size());
      return false;
    }
    if (m_encoding == kMInt && bytes.size() > 255) {
      m_errors += "mInt Error: Attempting to ADD field of length " + std::to_string(bytes.size()) +
                  " which is > max length 255\n";
      m_positions.erase(id);
      return false;
    }
    const Bytes fresh = header(m_encoding);
    while (m_bytes.size() < fresh.size()) {
      m_bytes.push_back(fresh[m_bytes.size()]);
    }
    m_positions[id] = m_bytes.size();
    putNumber(id, 2);
    if (m_encoding == kMsgT) {
      putNumber(value.type, 2);
      putNumber(bytes.size(), 4);
    } else if (m_encoding == kMInt) {
      putNumber(bytes.size(), 1);
    } else if (value.type == DATATYPES::STRING) {
      putNumber(bytes.size(), 2);
    } else if (value.type == DATATYPES::BUFFER) {
      putNumber(bytes.size(), 4);
    }
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return true;
  }

  /// Appends the low bytes of a number in the encoding's order.
  void putNumber(std::size_t value, unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
      m_bytes.push_back(static_cast<std::uint8_t>(value >> 8 * (m_encoding == kMsgT ? count - 1 - i : i)));
    }
  }

  void removeRecord(std::size_t position) {
    const Record record = recordAt(position);
    removeBytes(position, record.headBytes + record.valueBytes);
  }

  void removeBytes(std::size_t position, std::size_t count) {
    const std::size_t end = std::min(position + count, m_bytes.size());
    m_bytes.erase(m_bytes.begin() + offset(position), m_bytes.begin() + offset(end));
  }

  void index(std::size_t position) {
    bool isStripped = false;
    while (position < m_bytes.size()) {
      if (m_bytes.size() - position == 1) {
        reportBadField(m_bytes.back(), 0, 0);
        m_bytes.pop_back();
        isStripped = true;
        break;
      }
      const Record record = recordAt(position);
      const auto row = dictionary().find(record.id);
      if (row != dictionary().end() && row->second.type == record.type) {
        m_positions[record.id] = position;
        position += record.headBytes + record.valueBytes;
      } else {
        reportBadField(record.id, record.type, record.valueBytes);
        removeRecord(position);
        isStripped = true;
      }
    }
    if (isStripped && reportCount(m_encoding) <= 100) {
      // The reports of fields that cannot be read come first: the dump is written as a whole.
      const std::string printed = print(65536 + 64 * m_bytes.size());
      m_errors += remainder(printed);
    }
  }

  /// One counter an encoding and process, as in the library: every message of the process has to have a model.
  static int& reportCount(Encoding encoding) {
    static std::map<Encoding, int> counts;
    return counts[encoding];
  }

  void reportBadField(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
    if (reportCount(m_encoding) <= 100) {
      m_errors += badField(id, type, sizeBytes);
      ++reportCount(m_encoding);
    }
  }

  void fail(const char* line, std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
    m_errors += report(line, id, type, sizeBytes);
  }

  template <class T>
  static T valueFrom(const std::string& raw) {
    T value{};
    std::memcpy(static_cast<void*>(&value), raw.data(), sizeof value);
    return value;
  }

  MD_Variant variant(std::uint16_t id, std::uint8_t type) {
    const auto raw = isValueType(type) ? get(id, type) : std::nullopt;
    if (!raw) {
      return MD_Variant();
    }
    switch (type) {
      case DATATYPES::CHAR:
        return MD_Variant(raw->front());
      case DATATYPES::INT:
        return MD_Variant(valueFrom<std::int32_t>(*raw));
      case DATATYPES::INT64:
        return MD_Variant(valueFrom<std::int64_t>(*raw));
      case DATATYPES::FLOAT:
        return MD_Variant(valueFrom<float>(*raw));
      case DATATYPES::DOUBLE:
        return MD_Variant(valueFrom<double>(*raw));
      case DATATYPES::STRING:
        return MD_Variant(*raw);
      case DATATYPES::BUFFER:
        return MD_Variant(bufferOf(*raw));
      case DATATYPES::DATETIME:
        return MD_Variant(valueFrom<MD_DateTime>(*raw));
      default:
        return MD_Variant(valueFrom<MD_EpochNS>(*raw));
    }
  }

  Encoding m_encoding;
  Bytes m_bytes;
  std::map<std::uint16_t, std::size_t> m_positions;
  std::string m_errors;
};

}  // namespace MD::test

#endif
