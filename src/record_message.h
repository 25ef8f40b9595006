// The slots of RecordMessage over a RecordStore. An encoding's source defines `Encoding::Rules`, includes this and
// instantiates `RecordMessage<Encoding>`.
#ifndef MD_SRC_RECORD_MESSAGE_H
#define MD_SRC_RECORD_MESSAGE_H

#include "field_copy.h"
#include "md/md_record_message.h"
#include "record_replacement.h"
#include "record_store.h"

namespace MD {

template <class Encoding>
struct RecordMessage<Encoding>::Records : detail::RecordStore<typename Encoding::Rules> {
  using detail::RecordStore<typename Encoding::Rules>::RecordStore;
};

template <class Encoding>
RecordMessage<Encoding>::RecordMessage(const Allocator& allocator) : MD_Message(allocator) {}

template <class Encoding>
RecordMessage<Encoding>::~RecordMessage() = default;

template <class Encoding>
void RecordMessage<Encoding>::startEmpty() {
  Records(*this).startEmpty();
}

template <class Encoding>
std::uint8_t RecordMessage<Encoding>::getPB() const {
  return Encoding::Rules::kHeader[0];
}

template <class Encoding>
const std::uint8_t* RecordMessage<Encoding>::fieldData(std::uint16_t id, std::uint8_t& type,
                                                       std::uint32_t& sizeBytes) const {
  return Records(*this).locate(id, type, sizeBytes);
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::createEmpty() const {
  return std::make_unique<Encoding>();
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::clone() const {
  std::unique_ptr<Encoding> copy(new Encoding(DEFAULT_ALLOCATOR));
  Records(*copy).assign(bytes().data(), bytes().size());
  Records(*copy).copyPositions(Records(*this));
  return copy;
}

template <class Encoding>
std::unique_ptr<MD_Message> RecordMessage<Encoding>::moveToNew() {
  std::unique_ptr<Encoding> moved(new Encoding(DEFAULT_ALLOCATOR));
  if (Encoding::Rules::kMoveLeavesEmptyMessage) {
    Records(*moved).startEmpty();
  } else {
    // A clear keeps the header as it is, and the pool's buffer may have served another encoding.
    Records(*moved).writeHeader(0);
  }
  swap(*moved);
  return moved;
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseArrayImpl(const std::vector<std::uint16_t>& ids) {
  return Records(*this).eraseMany(ids);
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseSetImpl(const std::set<std::uint16_t>& ids) {
  return Records(*this).eraseMany(ids);
}

template <class Encoding>
bool RecordMessage<Encoding>::eraseImpl(std::uint16_t id) {
  return Records(*this).erase(id);
}

template <class Encoding>
void RecordMessage<Encoding>::clearImpl() {
  Records(*this).clear();
}

template <class Encoding>
bool RecordMessage<Encoding>::emptyImpl() const {
  return Records(*this).isEmpty();
}

template <class Encoding>
bool RecordMessage<Encoding>::existsImpl(std::uint16_t id) const {
  return Records(*this).exists(id);
}

template <class Encoding>
bool RecordMessage<Encoding>::setBinaryImpl(const std::uint8_t* received, std::uint32_t sizeBytes) {
  if (received == nullptr) {
    return false;
  }
  Records(*this).parse(received, sizeBytes);
  return true;
}

template <class Encoding>
void RecordMessage<Encoding>::takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids) {
  detail::RecordReplacement<typename Encoding::Rules> fields(Records(*this), ids.size());
  detail::copyFields(source, fieldMap(), ids,
                     [&fields](std::uint16_t id, auto value) { return fields.put(id, value); });
}

template <class Encoding>
void RecordMessage<Encoding>::getFieldIdsImpl(std::vector<std::uint16_t>& out) const {
  Records(*this).ids(out);
}

#define MD_SLOT(T, name, code)                                            \
  template <class Encoding>                                               \
  bool RecordMessage<Encoding>::getImpl(std::uint16_t id, T& out) const { \
    return Records(*this).read(id, out);                                  \
  }                                                                       \
  template <class Encoding>                                               \
  bool RecordMessage<Encoding>::addImpl(std::uint16_t id, T value) {      \
    return Records(*this).add(id, value);                                 \
  }                                                                       \
  template <class Encoding>                                               \
  bool RecordMessage<Encoding>::updateImpl(std::uint16_t id, T value) {   \
    return Records(*this).update(id, value);                              \
  }
MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

}  // namespace MD

#endif
