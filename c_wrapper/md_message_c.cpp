#include "md_message_c.h"

#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "cells.h"
#include "md/md_message.h"
#include "md/md_mint.h"

using MD::MD_DateTime;
using MD::MD_EpochNS;
using MD::MD_Message;

// The structs of both languages have the same layout; they are nevertheless converted member by member.
static_assert(sizeof(MD_String) == sizeof(MD_Message::String) && std::is_standard_layout_v<MD_Message::String>);
static_assert(sizeof(MD_Buffer) == sizeof(MD_Message::Buffer) && std::is_standard_layout_v<MD_Message::Buffer>);
static_assert(sizeof(short) == sizeof(std::int16_t) && sizeof(int) == sizeof(std::int32_t));

namespace {

// The object is made after its cell, so that a failure of either frees the other.
MD_MessageHandle newMessageCell(std::unique_ptr<MD_Message> (*make)(const unsigned char*, std::uint32_t),
                                const unsigned char* bytes, std::uint32_t length) {
  auto cell = std::make_unique<MD_MessageCell>();
  cell->hold(make(bytes, length));
  return cell.release();
}

MD_DateTimeHandle newDateTimeCell(MD_DateTime value) {
  auto cell = std::make_unique<MD_DateTimeCell>();
  cell->dateTime = std::make_unique<MD_DateTime>(value);
  return cell.release();
}

// A value of the C interface for each of the C++ one, and back.
template <class T>
T fromC(T value) {
  return value;
}
MD_Message::String fromC(const MD_String* value) { return {value->data, value->length}; }
MD_Message::Buffer fromC(const MD_Buffer* value) { return {value->data, value->length}; }

void toC(MD_Message::String value, MD_String& out) { out = {value.data, value.length}; }
void toC(MD_Message::Buffer value, MD_Buffer& out) { out = {value.data, value.length}; }
void toC(MD_EpochNS value, std::uint64_t& out) { out = value.get(); }

/// Reads a field as a `T` into the corresponding C type.
template <class T, class Out>
bool getField(MD_MessageHandle message, std::uint16_t id, Out* out) {
  if (message == nullptr || out == nullptr) {
    return false;
  }
  return MD::detail::withOwnClass(*message, [=](const auto& own) {
    if constexpr (std::is_same_v<T, Out>) {
      return own.get(id, *out);
    } else {
      T value{};
      if (!own.get(id, value)) {
        return false;
      }
      toC(value, *out);
      return true;
    }
  });
}

// The last thing done, so that the call of the slot is a jump. Nothing inlined is as cheap, nor for an update.
template <class Value>
bool addField(MD_MessageHandle message, std::uint16_t id, Value value) {
  return message != nullptr && message->message->add(id, fromC(value));
}

template <class Value>
bool updateField(MD_MessageHandle message, std::uint16_t id, Value value) {
  return message != nullptr && message->message->update(id, fromC(value));
}

/// The date-time made anew from its three parts: other bits of the packed word do not travel.
MD_DateTime fromParts(MD_DateTimeHandle dt) {
  return {dt->dateTime->date(), dt->dateTime->time(), dt->dateTime->exch_gmt_offset()};
}

}  // namespace

MD_MessageHandle MD_mInt_new(void) {
  return newMessageCell(
      [](const unsigned char*, std::uint32_t) -> std::unique_ptr<MD_Message> { return std::make_unique<MD::mInt>(); },
      nullptr, 0);
}

MD_MessageHandle MD_Message_createFromBytes(const unsigned char* bytes, uint32_t length) {
  return newMessageCell(
      [](const unsigned char* first, std::uint32_t count) {
        return MD_Message::createFromBytes(first, count, MD_Message::DEFAULT_ALLOCATOR);
      },
      bytes, length);
}

void MD_Message_delete(MD_MessageHandle message) { delete message; }

bool MD_Message_setBinary(MD_MessageHandle message, const unsigned char* bytes, uint32_t length) {
  return message != nullptr && message->message->setBinaryImpl(bytes, length);
}

bool MD_Message_getChar(MD_MessageHandle message, uint16_t id, char* out) { return getField<char>(message, id, out); }

bool MD_Message_getInt(MD_MessageHandle message, uint16_t id, int32_t* out) {
  return getField<std::int32_t>(message, id, out);
}

bool MD_Message_getInt64(MD_MessageHandle message, uint16_t id, int64_t* out) {
  return getField<std::int64_t>(message, id, out);
}

bool MD_Message_getFloat(MD_MessageHandle message, uint16_t id, float* out) {
  return getField<float>(message, id, out);
}

bool MD_Message_getDouble(MD_MessageHandle message, uint16_t id, double* out) {
  return getField<double>(message, id, out);
}

bool MD_Message_getString(MD_MessageHandle message, uint16_t id, MD_String* out) {
  return getField<MD_Message::String>(message, id, out);
}

bool MD_Message_getBuffer(MD_MessageHandle message, uint16_t id, MD_Buffer* out) {
  return getField<MD_Message::Buffer>(message, id, out);
}

bool MD_Message_getDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt) {
  // Returns only whether the field is readable; the value is discarded.
  MD_DateTime value;
  return dt != nullptr && getField<MD_DateTime>(message, id, &value);
}

bool MD_Message_getEpochNS(MD_MessageHandle message, uint16_t id, uint64_t* out) {
  return getField<MD_EpochNS>(message, id, out);
}

bool MD_Message_addChar(MD_MessageHandle message, uint16_t id, char value) { return addField(message, id, value); }

bool MD_Message_addInt(MD_MessageHandle message, uint16_t id, int32_t value) { return addField(message, id, value); }

bool MD_Message_addInt64(MD_MessageHandle message, uint16_t id, int64_t value) { return addField(message, id, value); }

bool MD_Message_addFloat(MD_MessageHandle message, uint16_t id, float value) { return addField(message, id, value); }

bool MD_Message_addDouble(MD_MessageHandle message, uint16_t id, double value) { return addField(message, id, value); }

bool MD_Message_addString(MD_MessageHandle message, uint16_t id, const MD_String* value) {
  return addField(message, id, value);
}

bool MD_Message_addBuffer(MD_MessageHandle message, uint16_t id, const MD_Buffer* value) {
  return addField(message, id, value);
}

bool MD_Message_addDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt) {
  return dt != nullptr && addField(message, id, fromParts(dt));
}

bool MD_Message_addEpochNS(MD_MessageHandle message, uint16_t id, uint64_t value) {
  return addField(message, id, MD_EpochNS(value));
}

bool MD_Message_updateChar(MD_MessageHandle message, uint16_t id, char value) {
  return updateField(message, id, value);
}

bool MD_Message_updateInt(MD_MessageHandle message, uint16_t id, int32_t value) {
  return updateField(message, id, value);
}

bool MD_Message_updateInt64(MD_MessageHandle message, uint16_t id, int64_t value) {
  return updateField(message, id, value);
}

bool MD_Message_updateFloat(MD_MessageHandle message, uint16_t id, float value) {
  return updateField(message, id, value);
}

bool MD_Message_updateDouble(MD_MessageHandle message, uint16_t id, double value) {
  return updateField(message, id, value);
}

bool MD_Message_updateString(MD_MessageHandle message, uint16_t id, const MD_String* value) {
  return updateField(message, id, value);
}

bool MD_Message_updateBuffer(MD_MessageHandle message, uint16_t id, const MD_Buffer* value) {
  return updateField(message, id, value);
}

bool MD_Message_updateDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt) {
  return dt != nullptr && updateField(message, id, fromParts(dt));
}

bool MD_Message_updateEpochNS(MD_MessageHandle message, uint16_t id, uint64_t value) {
  return updateField(message, id, MD_EpochNS(value));
}

bool MD_Message_erase(MD_MessageHandle message, uint16_t id) {
  return message != nullptr && message->message->eraseImpl(id);
}

bool MD_Message_erase_array(MD_MessageHandle message, const uint16_t* ids, size_t count) {
  return message != nullptr && ids != nullptr &&
         message->message->eraseArrayImpl(std::vector<std::uint16_t>(ids, ids + count));
}

void MD_Message_clear(MD_MessageHandle message) {
  if (message != nullptr) {
    message->message->clearImpl();
  }
}

bool MD_Message_empty(MD_MessageHandle message) { return message == nullptr || message->message->emptyImpl(); }

bool MD_Message_exists(MD_MessageHandle message, uint16_t id) {
  return message != nullptr && message->message->existsImpl(id);
}

uint32_t MD_Message_getSize(MD_MessageHandle message) {
  return message != nullptr ? message->message->getSizeImpl() : 0;
}

uint64_t MD_Message_fieldCount(MD_MessageHandle message) {
  return message != nullptr ? message->message->fieldCount() : 0;
}

bool MD_Message_getWND(MD_MessageHandle message, uint16_t whole_id, uint16_t numerator_id, uint16_t denominator_id,
                       double* out) {
  return message != nullptr && out != nullptr && message->message->getWND(whole_id, numerator_id, denominator_id, *out);
}

bool MD_Message_print(MD_MessageHandle message) { return message != nullptr; }

bool MD_Message_getFieldIds(MD_MessageHandle message, uint16_t* ids, size_t* count) {
  if (message == nullptr || ids == nullptr || count == nullptr) {
    return false;
  }
  std::vector<std::uint16_t> found;
  message->message->getFieldIdsImpl(found);
  std::size_t written = 0;
  for (const std::uint16_t id : found) {
    ids[written++] = id;
  }
  *count = written;
  return true;
}

MD_DateTimeHandle MD_DateTime_new(int32_t date, int32_t time, int16_t exch_gmt_offset) {
  return newDateTimeCell({date, time, exch_gmt_offset});
}

MD_DateTimeHandle MD_DateTime_new_empty(void) { return newDateTimeCell({}); }

void MD_DateTime_delete(MD_DateTimeHandle dt) { delete dt; }

bool MD_DateTime_serialize(char* buffer, MD_DateTimeHandle dt) {
  if (buffer == nullptr || dt == nullptr) {
    return false;
  }
  MD_DateTime::serialize(buffer, *dt->dateTime);
  return true;
}

bool MD_DateTime_deserialize(MD_DateTimeHandle dt, const char* buffer) {
  if (dt == nullptr || buffer == nullptr) {
    return false;
  }
  MD_DateTime::deserialize(*dt->dateTime, buffer);
  return true;
}

bool MD_DateTime_date(MD_DateTimeHandle dt, int32_t* out) {
  if (dt == nullptr) {
    return false;
  }
  *out = dt->dateTime->date();
  return true;
}

bool MD_DateTime_time(MD_DateTimeHandle dt, int32_t* out) {
  if (dt == nullptr) {
    return false;
  }
  *out = dt->dateTime->time();
  return true;
}

bool MD_DateTime_exch_gmt_offset(MD_DateTimeHandle dt, int16_t* out) {
  if (dt == nullptr) {
    return false;
  }
  *out = dt->dateTime->exch_gmt_offset();
  return true;
}
