// A sequence of calls of the C interface, both headers of it, on two handles. Each is done as well on a message of the
// C++ interface, with which result, values, bytes, ids, count, length and formatted texts agree; null handles give the
// stated null results.
#include <cstdint>
#include <cstring>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "c_ext_properties.h"
#include "fuzz_dictionary.h"
#include "fuzz_input.h"
#include "fuzz_target.h"
#include "md/md_message.h"
#include "md/md_message_c.h"
#include "md/md_message_c_ext.h"
#include "md/md_mint.h"
#include "support/captured_errors.h"
#include "support/messages.h"

namespace {

using MD::MD_DateTime;
using MD::MD_EpochNS;
using MD::MD_Message;
using MD::fuzz::FuzzInput;

// The types whose values cross the interface as they are.
#define MD_PLAIN_TYPES(X) \
  X(char, Char)           \
  X(std::int32_t, Int)    \
  X(std::int64_t, Int64)  \
  X(float, Float)         \
  X(double, Double)

struct DeleteMessage {
  void operator()(MD_MessageHandle handle) const { MD_Message_delete(handle); }
};
using Handle = std::unique_ptr<MD_MessageCell, DeleteMessage>;

struct DeleteDateTime {
  void operator()(MD_DateTimeHandle handle) const { MD_DateTime_delete(handle); }
};
using DateTimeHandle = std::unique_ptr<MD_DateTimeCell, DeleteDateTime>;

template <class T>
bool isSame(const T& a, const T& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

template <class T>
T numberFrom(FuzzInput& input) {
  const std::uint64_t word = sizeof(T) <= 4 ? input.number<std::uint32_t>() : input.word();
  T value{};
  std::memcpy(&value, &word, sizeof value);
  return value;
}

MD_DateTime partsOf(const MD_DateTime& value) { return {value.date(), value.time(), value.exch_gmt_offset()}; }

class Calls {
 public:
  explicit Calls(FuzzInput& input) : m_input(input) {
    for (Pair& pair : m_pairs) {
      pair = {Handle(MD_mInt_new()), std::make_unique<MD::mInt>()};
    }
    m_dateTimeHandle.reset(MD_DateTime_new_empty());
  }

  void run() {
    while (!m_input.isAtEnd()) {
      Pair& pair = m_pairs[m_input.below(2)];
      call(pair);
      compare(pair);
    }
    for (Pair& pair : m_pairs) {
      for (const std::uint16_t id : MD::test::idsOf(*pair.message)) {
        compareReads(pair, id);
      }
      MD::fuzz::checkLists(pair.handle.get(), *pair.message, m_input);
    }
  }

 private:
  struct Pair {
    Handle handle;
    std::unique_ptr<MD_Message> message;
  };

  /// One of the tests' fields, or of the prices'.
  std::uint16_t someField() {
    constexpr std::uint16_t kPriceFields[] = {110, 111, 112, 113, 114, 115};
    const unsigned choice = m_input.below(std::size(MD::test::kIds) + std::size(kPriceFields));
    return choice < std::size(MD::test::kIds) ? MD::test::kIds[choice]
                                              : kPriceFields[choice - std::size(MD::test::kIds)];
  }

  void call(Pair& pair) {
    const std::uint16_t id = someField();
    switch (m_input.below(22)) {
      case 0:
        return create(pair);
      case 1:
        return setBinary(pair);
      case 2:
      case 3:
      case 4:
        return store(pair, id, false);
      case 5:
      case 6:
      case 7:
        return store(pair, id, true);
      case 8:
        return expect(MD_Message_erase(pair.handle.get(), id), pair.message->eraseImpl(id));
      case 9:
        return eraseArray(pair);
      case 10:
        MD_Message_clear(pair.handle.get());
        pair.message->clearImpl();
        return;
      case 11:
        return compareReads(pair, id);
      case 12:
        return getWND(pair);
      case 13:
        m_dateTime = MD_DateTime(numberFrom<int>(m_input), numberFrom<int>(m_input), numberFrom<short>(m_input));
        m_dateTimeHandle.reset(MD_DateTime_new(m_dateTime.date(), m_dateTime.time(), m_dateTime.exch_gmt_offset()));
        m_dateTime = partsOf(m_dateTime);
        return compareDateTime();
      case 14:
        return deserialize();
      case 15:
        return callWithNull(id);
      case 16:
        return createFromPB(pair);
      case 17:
        return createLike(pair);
      case 18:
      case 19: {
        const Pair& source = m_pairs[m_input.below(2)];
        return MD::fuzz::copyBoth(pair.handle.get(), *pair.message, source.handle.get(), *source.message,
                                  m_input.oneIn(4));
      }
      case 20:
        return MD::fuzz::checkLists(pair.handle.get(), *pair.message, m_input);
      default:
        return MD::fuzz::checkDictionary(m_input);
    }
  }

  void create(Pair& pair) {
    if (m_input.oneIn(2)) {
      pair = {Handle(MD_mInt_new()), std::make_unique<MD::mInt>()};
      return;
    }
    const std::string bytes = m_input.bytes(m_input.below(256));
    const MD::test::HeapBlock block(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    Handle handle(MD_Message_createFromBytes(block.data(), block.size()));
    auto message = MD_Message::createFromBytes(block.data(), block.size());
    MD_PROPERTY(handle != nullptr, "gives no handle");
    if (message != nullptr) {  // an invalid handle accepts nothing but its deletion
      pair = {std::move(handle), std::move(message)};
    }
  }

  /// Of a code, mostly of an encoding's, or of the preferred one.
  void createFromPB(Pair& pair) {
    constexpr std::uint8_t kCodes[] = {MD_ENCODING_ITERMAP, MD_ENCODING_MINT, MD_ENCODING_MSGT};
    const unsigned choice = m_input.below(8);
    Pair made;
    if (choice < std::size(kCodes)) {
      made = {Handle(MD_Message_createFromPB(kCodes[choice])), MD_Message::createFromPB(kCodes[choice])};
      MD_PROPERTY(made.handle != nullptr, "makes no message of an encoding");
    } else if (choice == std::size(kCodes)) {
      made = {Handle(MD_Message_createPreferred(true)), MD_Message::createPreferred(true)};
    } else {
      const auto code = static_cast<std::uint8_t>(m_input.below(256));
      made = {Handle(MD_Message_createFromPB(code)), MD_Message::createFromPB(code)};
    }
    MD_PROPERTY((made.handle != nullptr) == (made.message != nullptr), "makes a message, or not");
    if (made.handle != nullptr) {
      pair = std::move(made);
    }
  }

  /// Replaces a message by a clone, or an empty one of the same encoding, of one of the two.
  void createLike(Pair& pair) {
    const Pair& model = m_pairs[m_input.below(2)];
    Pair made;
    if (m_input.oneIn(4)) {
      made = {Handle(MD_Message_createEmpty(model.handle.get())), model.message->createEmpty()};
    } else {
      made = {Handle(MD_Message_clone(model.handle.get())), model.message->clone()};
    }
    MD_PROPERTY(made.handle != nullptr, "makes no message like another");
    pair = std::move(made);
  }

  void setBinary(Pair& pair) {
    const std::string bytes = m_input.bytes(m_input.below(256));
    const MD::test::HeapBlock block(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    expect(MD_Message_setBinary(pair.handle.get(), block.data(), block.size()),
           pair.message->setBinaryImpl(block.data(), block.size()));
    MD_PROPERTY(!MD_Message_setBinary(pair.handle.get(), nullptr, block.size()), "takes null bytes");
  }

  /// Adds or updates a value of the field's type, mostly.
  void store(Pair& pair, std::uint16_t id, bool isUpdate) {
    const MD::test::ModelValue value = m_input.someValue(id);
    MD_MessageHandle handle = pair.handle.get();
    MD_Message& message = *pair.message;
    switch (value.type) {
#define MD_CASE(T, name)                                                                                           \
  case MD::detail::kTypeCode<T>: {                                                                                 \
    const T typed = MD::test::Choices::typed<T>(value.raw);                                                        \
    return expect(isUpdate ? MD_Message_update##name(handle, id, typed) : MD_Message_add##name(handle, id, typed), \
                  isUpdate ? message.update(id, typed) : message.add(id, typed));                                  \
  }
      MD_PLAIN_TYPES(MD_CASE)
#undef MD_CASE
      case MD::DATATYPES::STRING: {
        const auto text = MD::test::Choices::typed<MD_Message::String>(value.raw);
        const MD_String record{text.data, text.length};
        return expect(
            isUpdate ? MD_Message_updateString(handle, id, &record) : MD_Message_addString(handle, id, &record),
            isUpdate ? message.update(id, text) : message.add(id, text));
      }
      case MD::DATATYPES::BUFFER: {
        const auto bytes = MD::test::Choices::typed<MD_Message::Buffer>(value.raw);
        const MD_Buffer record{bytes.data, bytes.length};
        return expect(
            isUpdate ? MD_Message_updateBuffer(handle, id, &record) : MD_Message_addBuffer(handle, id, &record),
            isUpdate ? message.update(id, bytes) : message.add(id, bytes));
      }
      case MD::DATATYPES::DATETIME: {
        MD_DateTimeHandle dateTime = m_dateTimeHandle.get();
        const MD_DateTime stored = partsOf(m_dateTime);
        return expect(
            isUpdate ? MD_Message_updateDateTime(handle, id, dateTime) : MD_Message_addDateTime(handle, id, dateTime),
            isUpdate ? message.update(id, stored) : message.add(id, stored));
      }
      default: {
        const auto time = MD::test::Choices::typed<MD_EpochNS>(value.raw);
        return expect(
            isUpdate ? MD_Message_updateEpochNS(handle, id, time.get()) : MD_Message_addEpochNS(handle, id, time.get()),
            isUpdate ? message.update(id, time) : message.add(id, time));
      }
    }
  }

  void eraseArray(Pair& pair) {
    const std::vector<std::uint16_t> ids = m_input.someIds(*pair.message);
    const std::uint16_t none = 0;  // a list without ids is no null pointer
    expect(MD_Message_erase_array(pair.handle.get(), ids.empty() ? &none : ids.data(), ids.size()),
           pair.message->eraseArrayImpl(ids));
  }

  void getWND(Pair& pair) {
    constexpr std::uint16_t kFields[] = {110, 111, 112, 300, 301, 10};
    const auto field = [&] { return kFields[m_input.below(std::size(kFields))]; };
    const std::uint16_t whole = field();
    const std::uint16_t num = field();
    const std::uint16_t denom = field();
    double fromC = 1.5;
    double fromCpp = 1.5;
    expect(MD_Message_getWND(pair.handle.get(), whole, num, denom, &fromC),
           pair.message->getWND(whole, num, denom, fromCpp));
    MD_PROPERTY(isSame(fromC, fromCpp), "reads another price");
  }

  void deserialize() {
    char bytes[8] = {};
    const std::string text = m_input.bytes(sizeof bytes);
    std::copy(text.begin(), text.end(), bytes);
    MD_PROPERTY(MD_DateTime_deserialize(m_dateTimeHandle.get(), bytes), "does not read a date-time");
    MD_DateTime::deserialize(m_dateTime, bytes);
    compareDateTime();
  }

  void compareDateTime() {
    MD_DateTimeHandle handle = m_dateTimeHandle.get();
    std::int32_t date = 0;
    std::int32_t time = 0;
    std::int16_t offset = 0;
    char fromC[8];
    char fromCpp[8];
    MD_PROPERTY(MD_DateTime_date(handle, &date) && MD_DateTime_time(handle, &time) &&
                    MD_DateTime_exch_gmt_offset(handle, &offset) && MD_DateTime_serialize(fromC, handle),
                "a date-time cannot be read");
    MD_DateTime::serialize(fromCpp, m_dateTime);
    MD_PROPERTY(date == m_dateTime.date() && time == m_dateTime.time() && offset == m_dateTime.exch_gmt_offset() &&
                    std::memcmp(fromC, fromCpp, sizeof fromC) == 0,
                "a date-time reads otherwise");
  }

  void compare(Pair& pair) {
    MD_MessageHandle handle = pair.handle.get();
    const MD_Message& message = *pair.message;
    MD::fuzz::checkBytes(handle, message);
    MD_PROPERTY(MD_Message_fieldCount(handle) == message.fieldCount(), "counts other fields");
    MD_PROPERTY(MD_Message_empty(handle) == message.emptyImpl(), "is empty or not");
    MD_PROPERTY(MD_Message_print(handle), "does not print");
    const std::vector<std::uint16_t> ids = MD::test::idsOf(message);
    std::vector<std::uint16_t> fromC(message.getSizeImpl() / 2 + 1);
    std::size_t count = 0;
    MD_PROPERTY(MD_Message_getFieldIds(handle, fromC.data(), &count), "lists no ids");
    fromC.resize(std::min(count, fromC.size()));
    MD_PROPERTY(count == ids.size() && fromC == ids, "lists other ids");
  }

  void compareReads(Pair& pair, std::uint16_t id) {
    MD_MessageHandle handle = pair.handle.get();
    const MD_Message& message = *pair.message;
    expect(MD_Message_exists(handle, id), message.existsImpl(id));
#define MD_READ(T, name)                                                        \
  {                                                                             \
    T fromC{1};                                                                 \
    T fromCpp{1};                                                               \
    expect(MD_Message_get##name(handle, id, &fromC), message.get(id, fromCpp)); \
    MD_PROPERTY(isSame(fromC, fromCpp), "reads another " #name);                \
  }
    MD_PLAIN_TYPES(MD_READ)
#undef MD_READ
    MD_String text{"", 7};
    MD_Message::String textFromCpp("", 7);
    expect(MD_Message_getString(handle, id, &text), message.get(id, textFromCpp));
    MD_PROPERTY(text.length == textFromCpp.length, "reads a string of another length");
    MD_PROPERTY(
        !message.get(id, textFromCpp) || text.length == 0 || std::memcmp(text.data, textFromCpp.data, text.length) == 0,
        "reads another string");
    MD_Buffer bytes{nullptr, 7};
    MD_Message::Buffer bytesFromCpp(nullptr, 7);
    expect(MD_Message_getBuffer(handle, id, &bytes), message.get(id, bytesFromCpp));
    MD_PROPERTY(bytes.length == bytesFromCpp.length, "reads a buffer of another length");
    MD_PROPERTY(!message.get(id, bytesFromCpp) || bytes.length == 0 ||
                    std::memcmp(bytes.data, bytesFromCpp.data, bytes.length) == 0,
                "reads another buffer");
    MD_DateTime dateTime;
    expect(MD_Message_getDateTime(handle, id, m_dateTimeHandle.get()), message.get(id, dateTime));
    compareDateTime();
    std::uint64_t time = 1;
    MD_EpochNS timeFromCpp(1);
    expect(MD_Message_getEpochNS(handle, id, &time), message.get(id, timeFromCpp));
    MD_PROPERTY(time == timeFromCpp.get(), "reads another time");
    MD::fuzz::checkField(handle, message, id);
  }

  void callWithNull(std::uint16_t id) {
    MD_MessageHandle handle = m_pairs[0].handle.get();
#define MD_NULLS(T, name)                                                                                   \
  {                                                                                                         \
    T value{};                                                                                              \
    expectRefused(MD_Message_get##name(nullptr, id, &value) || MD_Message_get##name(handle, id, nullptr) || \
                  MD_Message_add##name(nullptr, id, value) || MD_Message_update##name(nullptr, id, value)); \
  }
    MD_PLAIN_TYPES(MD_NULLS)
#undef MD_NULLS
    MD_String text{"", 0};
    expectRefused(MD_Message_getString(nullptr, id, &text) || MD_Message_getString(handle, id, nullptr) ||
                  MD_Message_addString(nullptr, id, &text) || MD_Message_updateString(nullptr, id, &text));
    MD_Buffer bytes{nullptr, 0};
    expectRefused(MD_Message_getBuffer(nullptr, id, &bytes) || MD_Message_getBuffer(handle, id, nullptr) ||
                  MD_Message_addBuffer(nullptr, id, &bytes) || MD_Message_updateBuffer(nullptr, id, &bytes));
    MD_DateTimeHandle dateTime = m_dateTimeHandle.get();
    expectRefused(MD_Message_getDateTime(nullptr, id, dateTime) || MD_Message_getDateTime(handle, id, nullptr) ||
                  MD_Message_addDateTime(nullptr, id, dateTime) || MD_Message_addDateTime(handle, id, nullptr) ||
                  MD_Message_updateDateTime(nullptr, id, dateTime) || MD_Message_updateDateTime(handle, id, nullptr));
    std::uint64_t time = 0;
    expectRefused(MD_Message_getEpochNS(nullptr, id, &time) || MD_Message_getEpochNS(handle, id, nullptr) ||
                  MD_Message_addEpochNS(nullptr, id, time) || MD_Message_updateEpochNS(nullptr, id, time));
    std::size_t count = 0;
    double price = 0;
    expectRefused(MD_Message_erase(nullptr, id) || MD_Message_erase_array(nullptr, &id, 1) ||
                  MD_Message_erase_array(handle, nullptr, 0) || MD_Message_exists(nullptr, id) ||
                  MD_Message_getSize(nullptr) != 0 || MD_Message_fieldCount(nullptr) != 0 ||
                  !MD_Message_empty(nullptr) || MD_Message_print(nullptr) ||
                  MD_Message_getWND(nullptr, id, id, id, &price) || MD_Message_getWND(handle, id, id, id, nullptr) ||
                  MD_Message_getFieldIds(nullptr, &id, &count) || MD_Message_getFieldIds(handle, nullptr, &count) ||
                  MD_Message_getFieldIds(handle, &id, nullptr));
    MD_Message_clear(nullptr);
    MD_Message_delete(nullptr);
    MD_DateTime_delete(nullptr);
    char word[8] = {};
    std::int32_t number = 0;
    std::int16_t offset = 0;
    expectRefused(MD_DateTime_serialize(nullptr, dateTime) || MD_DateTime_serialize(word, nullptr) ||
                  MD_DateTime_deserialize(nullptr, word) || MD_DateTime_deserialize(dateTime, nullptr) ||
                  MD_DateTime_date(nullptr, &number) || MD_DateTime_time(nullptr, &number) ||
                  MD_DateTime_exch_gmt_offset(nullptr, &offset));
    MD::fuzz::checkNullExtArguments(handle, id);
  }

  static void expect(bool fromC, bool fromCpp) { MD_PROPERTY(fromC == fromCpp, "the results differ"); }
  static void expectRefused(bool isAccepted) { MD_PROPERTY(!isAccepted, "a null pointer is accepted"); }

  FuzzInput& m_input;
  Pair m_pairs[2];
  DateTimeHandle m_dateTimeHandle;
  MD_DateTime m_dateTime;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::useDictionary();
  const MD::test::CapturedErrors errors;
  FuzzInput input(data, size);
  Calls(input).run();
  return 0;
}
