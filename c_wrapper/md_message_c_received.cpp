// The functions of md_message_c_ext.h about received bytes and about several fields in one call.
#include <cstddef>
#include <cstdint>

#include <iterator>
#include <memory>
#include <type_traits>

#include "cells.h"
#include "md/md_message.h"
#include "md/md_peek.h"
#include "md/md_record_range.h"
#include "md_message_c_ext.h"

using MD::MD_DateTime;
using MD::MD_EpochNS;
using MD::MD_Message;

static_assert(std::is_standard_layout_v<MD_FieldSlot> && std::is_trivial_v<MD_FieldSlot>);
static_assert(offsetof(MD_FieldSlot, type) == 2 && offsetof(MD_FieldSlot, status) == 3 &&
              offsetof(MD_FieldSlot, value) == 8 && sizeof(MD_FieldSlot) == 8 + sizeof(MD_String));

namespace {

std::uint64_t packedWord(MD_DateTime value) noexcept {
  char bytes[sizeof(std::uint64_t)];
  MD_DateTime::serialize(bytes, value);
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

MD_DateTime dateTimeOf(std::uint64_t packedWord) noexcept {
  char bytes[sizeof packedWord];
  std::memcpy(bytes, &packedWord, sizeof packedWord);
  MD_DateTime value;
  MD_DateTime::deserialize(value, bytes);
  return value;
}

// A value as the C interface holds it.
template <class T>
T toC(T value) noexcept {
  return value;
}
MD_String toC(MD_Message::String value) noexcept { return {value.data, value.length}; }
MD_Buffer toC(MD_Message::Buffer value) noexcept { return {value.data, value.length}; }
std::uint64_t toC(MD_DateTime value) noexcept { return packedWord(value); }
std::uint64_t toC(MD_EpochNS value) noexcept { return value.get(); }

/// Calls `use` with a value of the slot's type and the slot's member for it. @return false for another type
template <class Slot, class Use>
MD_ALWAYS_INLINE inline bool withMember(Slot& slot, Use use) {
  switch (slot.type) {
    case MD_TYPE_CHAR:
      return use(char{}, slot.value.c);
    case MD_TYPE_INT:
      return use(std::int32_t{}, slot.value.i);
    case MD_TYPE_INT64:
      return use(std::int64_t{}, slot.value.l);
    case MD_TYPE_FLOAT:
      return use(float{}, slot.value.f);
    case MD_TYPE_DOUBLE:
      return use(double{}, slot.value.d);
    case MD_TYPE_STRING:
      return use(MD_Message::String(), slot.value.s);
    case MD_TYPE_BUFFER:
      return use(MD_Message::Buffer(), slot.value.b);
    case MD_TYPE_DATETIME:
      return use(MD_DateTime(), slot.value.dt);
    case MD_TYPE_EPOCH_NSEC:
      return use(MD_EpochNS(), slot.value.ns);
    default:
      return false;
  }
}

template <class T, class Member>
T fromC(const Member& member) {
  if constexpr (std::is_same_v<T, MD_Message::String> || std::is_same_v<T, MD_Message::Buffer>) {
    return {member.data, member.length};
  } else if constexpr (std::is_same_v<T, MD_DateTime>) {
    return dateTimeOf(member);
  } else {
    return T(member);
  }
}

/// Calls `use` with the message as its own class and each slot, and stores the result as status.
/// @return how many it returned true for
template <class Use>
std::size_t forEachSlot(MD_MessageHandle message, MD_FieldSlot* slots, std::size_t count, Use use) noexcept {
  if (slots == nullptr) {
    return 0;
  }
  std::size_t done = 0;
  std::size_t next = 0;
  if (message != nullptr && message->message != nullptr) {
    try {
      MD::detail::withOwnClass(*message, [&](auto& own) {
        for (; next != count; ++next) {
          const bool isDone = use(own, slots[next]);
          slots[next].status = std::uint8_t{isDone};
          done += std::size_t{isDone};
        }
        return true;
      });
    } catch (...) {
      // Out of memory: the result is the number of fields done.
    }
  }
  for (; next != count; ++next) {
    slots[next].status = 0;
  }
  return done;
}

template <class T, class Out>
bool peekInto(bool (*peek)(const std::uint8_t*, std::uint32_t, std::uint16_t, T&) noexcept, const std::uint8_t* bytes,
              std::uint32_t size, std::uint16_t id, Out* out) noexcept {
  T value{};
  if (out == nullptr || !peek(bytes, size, id, value)) {
    return false;
  }
  *out = toC(value);
  return true;
}

}  // namespace

size_t MD_Message_readFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count) {
  return forEachSlot(message, slots, count, [](const auto& own, MD_FieldSlot& slot) {
    return withMember(slot, [&](auto value, auto& member) {
      if (!own.get(slot.id, value)) {
        return false;
      }
      member = toC(value);
      return true;
    });
  });
}

size_t MD_Message_writeFields(MD_MessageHandle message, MD_FieldSlot* slots, size_t count, int mode) {
  const auto written = [=](auto write) {
    return forEachSlot(message, slots, count, [write](auto& own, MD_FieldSlot& slot) {
      return withMember(
          slot, [&](auto value, const auto& member) { return write(own, slot.id, fromC<decltype(value)>(member)); });
    });
  };
  switch (mode) {
    case MD_WRITE_ADD:
      return written([](auto& own, std::uint16_t id, auto value) { return own.add(id, value); });
    case MD_WRITE_UPDATE:
      return written([](auto& own, std::uint16_t id, auto value) { return own.update(id, value); });
    default:
      return written([](const auto&, std::uint16_t, auto) { return false; });
  }
}

MD_ReceiverHandle MD_Receiver_new(void) {
  try {
    auto receiver = std::make_unique<MD_ReceiverCell>();
    for (std::size_t i = 0; i != std::size(MD::ENCODINGS::kAll); ++i) {
      receiver->messages[i].hold(MD_Message::createFromPB(MD::ENCODINGS::kAll[i].code));
    }
    return receiver.release();
  } catch (...) {
    return nullptr;
  }
}

void MD_Receiver_delete(MD_ReceiverHandle receiver) { delete receiver; }

MD_MessageHandle MD_Receiver_parse(MD_ReceiverHandle receiver, const uint8_t* bytes, uint32_t size) {
  if (receiver == nullptr || bytes == nullptr || size == 0) {
    return nullptr;
  }
  for (MD_MessageCell& cell : receiver->messages) {
    if (cell.code == bytes[0]) {
      try {
        cell.message->setBinaryImpl(bytes, size);
        return &cell;
      } catch (...) {
        return nullptr;
      }
    }
  }
  return nullptr;
}

#define MD_PEEK(T, name, Out)                                                           \
  bool MD_peek##name(const uint8_t* bytes, uint32_t size, uint16_t id, Out* out) {      \
    return peekInto<T>(&MD::peek<T>, bytes, size, id, out);                             \
  }                                                                                     \
  bool MD_peekFirst##name(const uint8_t* bytes, uint32_t size, uint16_t id, Out* out) { \
    return peekInto<T>(&MD::peekFirst<T>, bytes, size, id, out);                        \
  }
MD_PEEK(char, Char, char)
MD_PEEK(std::int32_t, Int, int32_t)
MD_PEEK(std::int64_t, Int64, int64_t)
MD_PEEK(float, Float, float)
MD_PEEK(double, Double, double)
MD_PEEK(MD_Message::String, String, MD_String)
MD_PEEK(MD_Message::Buffer, Buffer, MD_Buffer)
MD_PEEK(MD_DateTime, DateTime, uint64_t)
MD_PEEK(MD_EpochNS, EpochNS, uint64_t)
#undef MD_PEEK

bool MD_nextRecord(const uint8_t* bytes, uint32_t size, uint32_t* position, MD_Record* record) {
  if (position == nullptr || record == nullptr) {
    return false;
  }
  MD::RecordView view;
  if (!MD::RecordRange::nextRecord(bytes, size, *position, view)) {
    return false;
  }
  *record = {view.id, view.type, view.isTruncated, view.sizeBytes, view.data};
  return true;
}
