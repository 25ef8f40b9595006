// The records of a message as they are in its bytes, well-formed or not.
#ifndef MDMSG_RECORD_WALK_H
#define MDMSG_RECORD_WALK_H

#include <cstddef>
#include <cstdint>

#include <vector>

#include <boost/container/static_vector.hpp>

#include "md/md_fieldmap.h"
#include "md/md_wire_record.h"

namespace MD::tool {

/// What is wrong with a part of a message.
enum class Flaw : std::uint8_t {
  None,
  NoEncoding,       ///< the first byte is not a known encoding id
  OtherMark,        ///< the header of a `MsgT` message is not "QR1", which receivers ignore
  HalfId,           ///< the message ends within a field id
  UnknownField,     ///< the dictionary has no field of this id
  NotCarried,       ///< the field has a type of which messages carry no values
  Repeated,         ///< an earlier record has the same field; receivers take the last one
  OtherType,        ///< the record's type is not that of the dictionary
  TypeOutOfRange,   ///< the high byte of a `MsgT` type is not 0, which receivers ignore
  EndsInRecord,     ///< the message ends within the part, or before it
  EndsInValue,      ///< the message ends within the value
  WrongSize,        ///< no value of the type has this size
  NoTerminator,     ///< a string without even its NUL
  OtherTerminator,  ///< a string that does not end in NUL
  TooLong,          ///< longer than a read can return
};

/// Bytes with one meaning.
struct Part {
  enum class Kind : std::uint8_t { Code, Mark, Rest, Id, Type, Length, Value };

  Kind kind;
  Flaw flaw = Flaw::None;
  std::size_t offset = 0;
  std::size_t sizeBytes = 0;  ///< those that are there
  std::uint64_t number = 0;   ///< what a Type or a Length says; of a Value, the size that it should have
};

/// A record, or the header in front of all records.
struct Record {
  bool isHeader = false;
  std::uint16_t id = 0;
  bool isKnown = false;  ///< the dictionary has the field
  std::uint8_t dictionaryType = 0;
  bool hasType = false;      ///< by the record itself or by the dictionary
  std::uint8_t type = 0;     ///< of the value: the record's own where it has one, else the dictionary's
  bool isTruncated = false;  ///< the message ends within it
  std::size_t earlier = 0;   ///< of a Repeated one: where the record before it with the same field begins
  boost::container::static_vector<Part, 4> parts;
};

/// Walks over received bytes as messages of them do, but keeps what those drop, and names what is wrong. Reads nothing
/// outside the bytes, whatever they are; each byte belongs to one part. Memory follows the dictionary, not the message,
/// and is kept from one message to the next.
class RecordWalk {
 public:
  /// @param map  outlives the walk
  explicit RecordWalk(const MD_FieldMap& map) : m_map(map), m_lastRecords(std::size_t{map.compactCount()} + 1) {}

  /// Calls `use` with the header as a `const Record&`, then with each record; not at all for no bytes.
  template <class Use>
  void forEach(const std::uint8_t* bytes, std::size_t sizeBytes, Use use) {
    if (sizeBytes == 0) {
      return;
    }
    begin(bytes, sizeBytes);
    use(header());
    forEachWireRecord(bytes, sizeBytes, m_map, [&](const WireRecord& wire) { use(recordOf(wire)); });
  }

 private:
  std::size_t left() const noexcept { return m_sizeBytes - m_at; }
  std::uint64_t number(std::size_t sizeBytes) const noexcept;
  Part& add(Record& record, Part::Kind kind, std::size_t sizeBytes, Flaw flaw = Flaw::None);
  bool addWhole(Record& record, Part::Kind kind, std::size_t sizeBytes);

  void begin(const std::uint8_t* bytes, std::size_t sizeBytes);
  Record header();
  Record recordOf(const WireRecord& wire);
  void addId(Record& record, const WireRecord& wire);
  void addValue(Record& record, const WireRecord& wire);

  const MD_FieldMap& m_map;
  const std::uint8_t* m_bytes = nullptr;
  std::size_t m_sizeBytes = 0;
  std::size_t m_at = 0;
  std::vector<std::size_t> m_lastRecords;  // by slot: where the field's last record begins, 0 before there is one
  std::vector<std::uint16_t> m_slots;      // of fields that have one
};

/// The number that `sizeBytes` bytes hold, at most 8.
std::uint64_t numberIn(const std::uint8_t* bytes, std::size_t sizeBytes, bool isBigEndian) noexcept;

}  // namespace MD::tool

#endif
