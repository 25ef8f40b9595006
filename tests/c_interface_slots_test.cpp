// Every typed function and every erase of the C interface against the virtual functions that it calls and the inlined
// operations of the message's own class, on random received bytes: results, outputs and diagnostics.
#include <cstdint>

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_message_c.h"
#include "md/md_message_c_ext.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/message_sequence.h"
#include "support/messages.h"
#include "support/random_choices.h"

namespace MD::test {
namespace {

struct HandleDeleter {
  void operator()(MD_MessageHandle handle) const { MD_Message_delete(handle); }
};
using OwnedHandle = std::unique_ptr<std::remove_pointer_t<MD_MessageHandle>, HandleDeleter>;

struct DateTimeDeleter {
  void operator()(MD_DateTimeHandle handle) const { MD_DateTime_delete(handle); }
};
using OwnedDateTime = std::unique_ptr<std::remove_pointer_t<MD_DateTimeHandle>, DateTimeDeleter>;

/// A date-time without the bits that the C interface does not carry.
MD_DateTime inParts(MD_DateTime value) { return {value.date(), value.time(), value.exch_gmt_offset()}; }

OwnedDateTime toC(MD_DateTime value) {
  return OwnedDateTime(MD_DateTime_new(value.date(), value.time(), value.exch_gmt_offset()));
}

// The C functions of each type. A get leaves `out` as it is when it fails.
#define MD_SAME_IN_C(T, name)                                                                             \
  bool getC(MD_MessageHandle m, std::uint16_t id, T& out) { return MD_Message_get##name(m, id, &out); }   \
  bool addC(MD_MessageHandle m, std::uint16_t id, T value) { return MD_Message_add##name(m, id, value); } \
  bool updateC(MD_MessageHandle m, std::uint16_t id, T value) { return MD_Message_update##name(m, id, value); }
MD_SAME_IN_C(char, Char)
MD_SAME_IN_C(std::int32_t, Int)
MD_SAME_IN_C(std::int64_t, Int64)
MD_SAME_IN_C(float, Float)
MD_SAME_IN_C(double, Double)
#undef MD_SAME_IN_C

#define MD_VIEW_IN_C(T, View, name)                             \
  bool getC(MD_MessageHandle m, std::uint16_t id, T& out) {     \
    View view = {out.data, out.length};                         \
    const bool result = MD_Message_get##name(m, id, &view);     \
    out = {view.data, view.length};                             \
    return result;                                              \
  }                                                             \
  bool addC(MD_MessageHandle m, std::uint16_t id, T value) {    \
    const View view = {value.data, value.length};               \
    return MD_Message_add##name(m, id, &view);                  \
  }                                                             \
  bool updateC(MD_MessageHandle m, std::uint16_t id, T value) { \
    const View view = {value.data, value.length};               \
    return MD_Message_update##name(m, id, &view);               \
  }
MD_VIEW_IN_C(MD_Message::String, MD_String, String)
MD_VIEW_IN_C(MD_Message::Buffer, MD_Buffer, Buffer)
#undef MD_VIEW_IN_C

bool getC(MD_MessageHandle m, std::uint16_t id, MD_EpochNS& out) {
  std::uint64_t ns = out.get();
  const bool result = MD_Message_getEpochNS(m, id, &ns);
  out = MD_EpochNS(ns);
  return result;
}
bool addC(MD_MessageHandle m, std::uint16_t id, MD_EpochNS value) { return MD_Message_addEpochNS(m, id, value.get()); }
bool updateC(MD_MessageHandle m, std::uint16_t id, MD_EpochNS value) {
  return MD_Message_updateEpochNS(m, id, value.get());
}

bool getC(MD_MessageHandle m, std::uint16_t id, MD_DateTime& out) {
  const OwnedDateTime value(MD_DateTime_new_empty());
  char word[sizeof(std::uint64_t)];
  MD_DateTime::serialize(word, out);
  MD_DateTime_deserialize(value.get(), word);
  const bool result = MD_Message_readDateTime(m, id, value.get());
  MD_DateTime_serialize(word, value.get());
  MD_DateTime::deserialize(out, word);
  return result;
}
bool addC(MD_MessageHandle m, std::uint16_t id, MD_DateTime value) {
  return MD_Message_addDateTime(m, id, toC(value).get());
}
bool updateC(MD_MessageHandle m, std::uint16_t id, MD_DateTime value) {
  return MD_Message_updateDateTime(m, id, toC(value).get());
}

/// The same message three times: through a handle, through its virtual functions, and as its own class.
template <class Encoding>
class ThreeMessages {
 public:
  explicit ThreeMessages(const Bytes& bytes)
      : m_handle(MD_Message_createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()))),
        m_slots(received(bytes)),
        m_own(parse<Encoding>(bytes)) {}

  const MD_Message& slots() const { return *m_slots; }

  /// Reads a field in every type. @return what differs, empty when nothing does
  std::string get(std::uint16_t id) {
    std::string difference;
    forEachValueType([&](auto sample, const char* name) {
      using T = decltype(sample);
      const T before = samplesOf<T>()[1];
      T outs[] = {before, before, before};
      CapturedErrors errors;
      const bool inC = getC(m_handle.get(), id, outs[0]);
      const std::string errorsOfC = errors.take();
      const bool bySlot = const_cast<const MD_Message&>(*m_slots).get(id, outs[1]);
      const std::string errorsOfSlot = errors.take();
      const bool byOwn = const_cast<const Encoding&>(*m_own).get(id, outs[2]);
      if (inC != bySlot || byOwn != bySlot || rawOf(outs[0]) != rawOf(outs[1]) || rawOf(outs[2]) != rawOf(outs[1]) ||
          errorsOfC != errorsOfSlot || errors.take() != errorsOfSlot) {
        difference = std::string("get ") + name + " of " + std::to_string(id);
      }
      if (std::is_same_v<T, MD_DateTime> &&
          MD_Message_getDateTime(m_handle.get(), id, toC(MD_DateTime()).get()) != bySlot) {
        difference = "getDateTime of " + std::to_string(id);
      }
    });
    return difference;
  }

  /// Adds or updates. @return as get()
  template <class T>
  std::string put(std::uint16_t id, T value, bool isUpdate) {
    if constexpr (std::is_same_v<T, MD_DateTime>) {
      value = inParts(value);
    }
    MD_Message& slots = *m_slots;
    return compare(
        isUpdate ? "update" : "add", id,
        [&] { return isUpdate ? updateC(m_handle.get(), id, value) : addC(m_handle.get(), id, value); },
        [&] { return isUpdate ? slots.update(id, value) : slots.add(id, value); },
        [&] { return isUpdate ? m_own->update(id, value) : m_own->add(id, value); });
  }

  std::string erase(std::uint16_t id) {
    return compare(
        "erase", id, [&] { return MD_Message_erase(m_handle.get(), id); }, [&] { return m_slots->eraseImpl(id); },
        [&] { return m_own->eraseImpl(id); });
  }

  std::string erase(const Ids& ids) {
    const std::uint16_t none = 0;
    return compare(
        "erase many", static_cast<unsigned>(ids.size()),
        [&] { return MD_Message_erase_array(m_handle.get(), ids.empty() ? &none : ids.data(), ids.size()); },
        [&] { return m_slots->eraseArrayImpl(ids); }, [&] { return m_own->eraseArrayImpl(ids); });
  }

 private:
  template <class InC, class BySlot, class ByOwn>
  std::string compare(const char* operation, unsigned id, InC inC, BySlot bySlot, ByOwn byOwn) {
    CapturedErrors errors;
    const bool resultInC = inC();
    const std::string errorsOfC = errors.take();
    const bool resultBySlot = bySlot();
    const std::string errorsOfSlot = errors.take();
    const bool resultByOwn = byOwn();
    const Bytes expected = bytesOf(*m_slots);
    const std::uint8_t* const first = MD_Message_getBinary(m_handle.get());
    const bool isSame = resultInC == resultBySlot && resultByOwn == resultBySlot && errorsOfC == errorsOfSlot &&
                        errors.take() == errorsOfSlot && bytesOf(*m_own) == expected &&
                        Bytes(first, first + MD_Message_getSize(m_handle.get())) == expected &&
                        MD_Message_fieldCount(m_handle.get()) == m_slots->fieldCount() &&
                        m_own->fieldCount() == m_slots->fieldCount();
    return isSame ? "" : std::string(operation) + " of " + std::to_string(id);
  }

  OwnedHandle m_handle;
  std::unique_ptr<MD_Message> m_slots;
  std::unique_ptr<Encoding> m_own;
};

template <class Encoding>
class CInterfaceSlots : public testing::Test {
 protected:
  CInterfaceSlots() { loadDictionary(kDictionary); }

  static std::uint8_t code() { return Encoding().getPB(); }

  /// What is reported of bad fields comes to an end, so that the messages report alike.
  static void useUpReports() {
    Bytes bytes = bytesOf(Encoding());
    bytes.insert(bytes.end(), 2000, 0);
    const CapturedErrors errors;
    parse(code(), bytes);
  }

  static Bytes someReceived(RandomChoices& choices) {
    const auto message = MD_Message::createFromPB(code());
    const CapturedErrors errors;
    for (unsigned count = choices.below(8); count > 0; --count) {
      const std::uint16_t id = choices.someId();
      Choices::withTyped(choices.someValue(id), [&](auto typed) { return message->add(id, typed); });
    }
    Bytes bytes = bytesOf(*message);
    if (choices.oneIn(2)) {  // the last record is truncated: what is added after it overlaps with it
      bytes.resize(bytes.size() - choices.below(static_cast<unsigned>(std::min<std::size_t>(bytes.size(), 10))));
    } else {
      bytes = choices.someBytes(*message);
    }
    return bytes;
  }

  static std::string runSequence(std::uint32_t seed) {
    RandomChoices choices(seed);
    ThreeMessages<Encoding> messages = [&choices] {
      Bytes bytes = someReceived(choices);
      if (bytes.empty()) {
        bytes.push_back(0);
      }
      bytes[0] = code();
      return ThreeMessages<Encoding>(bytes);
    }();
    for (unsigned steps = 0; steps < 10; ++steps) {
      const std::uint16_t id = choices.someId();
      std::string difference;
      switch (choices.below(8)) {
        case 0:
          difference = messages.erase(id);
          break;
        case 1:
          difference = messages.erase(choices.someIds(messages.slots()));
          break;
        default: {
          const ModelValue value = choices.someValue(id);
          const bool isUpdate = choices.oneIn(2);
          Choices::withTyped(value, [&](auto typed) {
            difference = messages.put(id, typed, isUpdate);
            return true;
          });
        }
      }
      for (const std::uint16_t each : kIds) {
        difference += messages.get(each);
      }
      if (!difference.empty()) {
        return difference + " in " + hexOf(messages.slots());
      }
    }
    return "";
  }
};

using AllEncodings = testing::Types<mInt, IterMap, MsgT>;
TYPED_TEST_SUITE(CInterfaceSlots, AllEncodings, );

TYPED_TEST(CInterfaceSlots, AgreeOnRandomReceivedBytes) {
  this->useUpReports();
  for (std::uint32_t seed = 1; seed <= 1500; ++seed) {
    ASSERT_EQ(this->runSequence(seed), "") << "seed " << seed;
  }
}

}  // namespace
}  // namespace MD::test
