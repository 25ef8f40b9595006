/// @file
/// The encoding of fixed widths, code 1.
#ifndef MD_ITERMAP_H
#define MD_ITERMAP_H

#include <cstdint>

#include "md/md_api.h"
#include "md/md_record_message.h"

namespace MD {

class MD_API IterMap;

/// Records of field id (2 bytes), a length word for strings (2 bytes) and buffers (4 bytes) only, and value,
/// little-endian, behind one header byte. Without the dictionary nobody knows where a record ends.
class MD_API IterMap final : public RecordMessage<IterMap> {
 public:
  class Field;

  IterMap();
  ~IterMap() override;

 private:
  friend class MD_Message;
  friend class RecordMessage<IterMap>;
  struct MD_LOCAL Layout;

  explicit IterMap(const Allocator& allocator);
};

/// A read-only cursor over one record. It does not know where the message ends: whoever makes one answers for the
/// record lying in memory as a whole. Each operation asserts that the cursor is valid; when the assertion's handler
/// returns, the result is 0, null or empty.
class MD_API IterMap::Field {
 public:
  /// @param record  the record's first byte, or null
  explicit Field(const char* record) noexcept : m_record(record) {}

  bool isValid() const noexcept { return m_record != nullptr; }

  std::uint16_t id() const;
  /// The dictionary's type for id(), 0 for an id that it does not know.
  std::uint8_t type() const;
  /// The length of the value in bytes: of a string with its NUL, 0 for an unknown id.
  std::uint32_t size() const;
  const char* data_ptr() const;

  /// The value. Each asserts that type() is the one asked for.
  operator char() const;
  operator int() const;
  operator std::int64_t() const;
  operator float() const;
  operator double() const;
  operator MD_Message::String() const;
  operator MD_Message::Buffer() const;
  operator MD_EpochNS() const;

 private:
  template <class T>
  T value(bool isOfType, const char* expression, unsigned line) const;

  const char* m_record;
};

}  // namespace MD

#endif
