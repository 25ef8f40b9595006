#include "c_ext_properties.h"

#include <cstddef>
#include <cstring>

#include <algorithm>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_target.h"
#include "md/md_fieldmap.h"
#include "md/md_price_output.h"
#include "support/messages.h"

namespace MD::fuzz {
namespace {

constexpr std::size_t kMarked = 0xABCD;  ///< what an untouched number still holds

struct Thrown {};

/// Records what is asserted, for its own lifetime; the handler returns, or throws.
class Assertions {
 public:
  explicit Assertions(bool handlerThrows) {
    recorded().clear();
    throws() = handlerThrows;
    m_previous = MD_set_assertion_handler(&Assertions::record);
  }
  ~Assertions() {
    MD_PROPERTY(MD_set_assertion_handler(m_previous) == &Assertions::record, "another handler was installed");
  }
  Assertions(const Assertions&) = delete;
  Assertions& operator=(const Assertions&) = delete;

  /// Each with its place, since the last call.
  static std::string take() { return std::exchange(recorded(), {}); }

 private:
  static std::string& recorded() {
    static std::string text;
    return text;
  }
  static bool& throws() {
    static bool doesThrow = false;
    return doesThrow;
  }
  static void record(const char* expression, const char* file, unsigned line) {
    recorded() += std::string(file) + ":" + std::to_string(line) + ": " + expression + "\n";
    if (throws()) {
      throw Thrown();
    }
  }

  MD_AssertionHandler m_previous;
};

/// Whether `work` comes to its end.
template <class Work>
bool finishes(Work work) {
  try {
    work();
    return true;
  } catch (const Thrown&) {
    return false;
  }
}

/// Places for exactly `capacity` objects of no particular value.
template <class T>
std::unique_ptr<T[]> placesFor(std::size_t capacity) {
  std::unique_ptr<T[]> places(new T[capacity]);
  std::fill_n(places.get(), capacity, static_cast<T>(0x5A));
  return places;
}

/// Capacities around the number of places that are needed, and any other.
std::set<std::size_t> capacitiesAround(std::size_t needed, FuzzInput& input) {
  return {0, 1, needed == 0 ? 0 : needed - 1, needed, needed + 1, input.below(256)};
}

using PrintToC = bool (*)(MD_MessageHandle, char*, std::size_t, std::size_t*);

/// Prints into `capacity` places and checks what comes out against `expected`, or against formatted text that `isDone`
/// says is truncated.
void checkText(MD_MessageHandle handle, PrintToC print, std::size_t capacity, bool isDone,
               const std::string& expected) {
  const auto text = placesFor<char>(capacity);
  std::size_t length = kMarked;
  const bool result = print(handle, text.get(), capacity, &length);
  MD_PROPERTY(result == (isDone && capacity > expected.size()), "prints, or not, into " + std::to_string(capacity));
  MD_PROPERTY(length == (isDone ? expected.size() : kMarked), "tells a text of another length");
  if (capacity != 0) {
    const std::size_t kept = isDone ? std::min(expected.size(), capacity - 1) : 0;
    MD_PROPERTY(std::memcmp(text.get(), expected.data(), kept) == 0 && text[kept] == '\0', "prints another text");
  }
}

template <class Print>
void checkPrintOut(MD_MessageHandle handle, PrintToC printToC, FuzzInput& input, bool handlerThrows, Print print) {
  const Assertions assertions(handlerThrows);
  std::ostringstream out;
  out.exceptions(std::ios_base::badbit);
  const bool isDone = finishes([&] { print(out); });
  const std::string expected = out.str();
  const std::string asserted = Assertions::take();
  const auto checkAsserted = [&] { MD_PROPERTY(Assertions::take() == asserted, "a print-out asserts otherwise"); };

  for (const std::size_t capacity : capacitiesAround(expected.size() + 1, input)) {
    checkText(handle, printToC, capacity, isDone, expected);
    checkAsserted();
  }
  std::size_t length = kMarked;
  MD_PROPERTY(printToC(handle, nullptr, input.below(256), &length) == isDone, "does not tell a text's length");
  MD_PROPERTY(length == (isDone ? expected.size() : kMarked), "tells another length without a text");
  checkAsserted();
}

/// Lists ids by `list`, called with places, capacity and count, and checks them against `expected`.
template <class List>
void checkIds(const test::Ids& expected, FuzzInput& input, List list) {
  for (const std::size_t capacity : capacitiesAround(expected.size(), input)) {
    const auto ids = placesFor<std::uint16_t>(capacity);
    std::size_t count = kMarked;
    MD_PROPERTY(list(ids.get(), capacity, &count) == (capacity >= expected.size()), "lists ids, or not");
    MD_PROPERTY(count == expected.size(), "counts other ids");
    MD_PROPERTY(std::equal(ids.get(), ids.get() + std::min(capacity, count), expected.begin()), "lists other ids");
  }
  std::size_t count = kMarked;
  MD_PROPERTY(list(nullptr, input.below(256), &count) && count == expected.size(), "does not tell the number of ids");
}

std::string serialised(const MD_DateTime& dateTime) {
  std::string word(8, '\0');
  MD_DateTime::serialize(word.data(), dateTime);
  return word;
}

/// Looks for a row one after another; of two that `isMeant` accepts, the one of the higher id. Null for none.
template <class IsMeant>
const FIELDS::field_rec* lastRow(IsMeant isMeant) {
  const FIELDS::field_rec* found = nullptr;
  for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
    if (isMeant(row)) {
      found = &row;
    }
  }
  return found;
}

void checkIdLookUps(std::uint16_t id) {
  const FIELDS::field_rec* const row = lastRow([=](const FIELDS::field_rec& field) { return field.id == id; });
  const char* const name = MD_FieldMap_idToName(id);
  MD_PROPERTY((name != nullptr) == (row != nullptr) && (row == nullptr || name == row->name),
              "id " + std::to_string(id) + " has another name");
  std::uint8_t type = 0xEE;
  MD_PROPERTY(MD_FieldMap_idToType(id, &type) == (row != nullptr), "knows, or not, id " + std::to_string(id));
  MD_PROPERTY(type == (row != nullptr ? row->type : 0xEE), "id " + std::to_string(id) + " has another type");
}

void checkNameLookUps(const std::string& name) {
  const FIELDS::field_rec* const row =
      lastRow([&](const FIELDS::field_rec& field) { return field.name == name.c_str(); });
  std::uint16_t id = kMarked;
  std::uint8_t type = 0xEE;
  MD_PROPERTY(MD_FieldMap_nameToId(name.c_str(), &id) == (row != nullptr) &&
                  MD_FieldMap_nameToType(name.c_str(), &type) == (row != nullptr),
              "knows, or not, the name " + name);
  MD_PROPERTY(id == (row != nullptr ? row->id : kMarked) && type == (row != nullptr ? row->type : 0xEE),
              "the name " + name + " leads elsewhere");
}

/// A handle that is as good as null.
class NoMessage {
 public:
  NoMessage() : m_handle(MD_Message_createFromBytes(nullptr, 0)) {}
  ~NoMessage() { MD_Message_delete(m_handle); }
  NoMessage(const NoMessage&) = delete;
  NoMessage& operator=(const NoMessage&) = delete;

  MD_MessageHandle get() const { return m_handle; }

 private:
  MD_MessageHandle m_handle;
};

void refuse(bool isAccepted) { MD_PROPERTY(!isAccepted, "a null pointer is accepted"); }

void checkWithoutMessage(MD_MessageHandle none, MD_MessageHandle handle, std::uint16_t id) {
  refuse(MD_Message_createEmpty(none) != nullptr || MD_Message_clone(none) != nullptr);
  refuse(MD_Message_getPB(none) != 0 || MD_Message_getBinary(none) != nullptr);
  refuse(MD_Message_copyMsg(none, handle) || MD_Message_copyMsg(handle, none));
  std::size_t number = kMarked;
  std::uint16_t ids[1] = {id};
  char text[1] = {'?'};
  refuse(MD_Message_copyFieldIds(none, ids, 1, &number) || MD_Message_copyFieldIds(none, nullptr, 0, &number) ||
         MD_Message_toText(none, text, 1, &number) || MD_Message_toText(none, nullptr, 0, &number) ||
         MD_Message_toPriceText(none, text, 1, &number) || MD_Message_toPriceText(none, nullptr, 0, &number));
  const std::uint8_t* data = nullptr;
  std::uint32_t size = 7;
  std::uint8_t type = 0xEE;
  const std::unique_ptr<MD_DateTimeCell, decltype(&MD_DateTime_delete)> dateTime(MD_DateTime_new_empty(),
                                                                                 &MD_DateTime_delete);
  refuse(MD_Message_fieldData(none, id, &data, &size, &type) || MD_Message_readDateTime(none, id, dateTime.get()));
  MD_PROPERTY(number == kMarked && ids[0] == id && data == nullptr && size == 7 && type == 0xEE,
              "an output changes without a message");
}

}  // namespace

void checkBytes(MD_MessageHandle handle, const MD_Message& message) {
  MD_PROPERTY(MD_Message_getPB(handle) == message.getPB(), "is of another encoding");
  const std::uint32_t size = message.getSizeImpl();
  MD_PROPERTY(MD_Message_getSize(handle) == size, "is of another length");
  MD_PROPERTY(size == 0 || std::memcmp(MD_Message_getBinary(handle), message.getBinary(), size) == 0,
              "holds other bytes");
}

void checkLists(MD_MessageHandle handle, const MD_Message& message, FuzzInput& input) {
  checkIds(test::idsOf(message), input, [=](std::uint16_t* ids, std::size_t capacity, std::size_t* count) {
    return MD_Message_copyFieldIds(handle, ids, capacity, count);
  });
  const bool handlerThrows = input.oneIn(4);
  checkPrintOut(handle, &MD_Message_toText, input, handlerThrows, [&](std::ostream& out) { out << message; });
  checkPrintOut(handle, &MD_Message_toPriceText, input, handlerThrows,
                [&](std::ostream& out) { out << PriceOutput(message); });
}

void checkField(MD_MessageHandle handle, const MD_Message& message, std::uint16_t id) {
  std::uint8_t expectedType = 0;
  std::uint32_t expectedSize = 0;
  const std::uint8_t* const expected = message.fieldData(id, expectedType, expectedSize);
  const std::uint64_t position = expected == nullptr ? 0 : static_cast<std::uint64_t>(expected - message.getBinary());
  const bool isWhole = expected != nullptr && position + expectedSize <= message.getSizeImpl();

  const std::uint8_t* data = nullptr;
  std::uint32_t size = 7;
  std::uint8_t type = 0xEE;
  MD_PROPERTY(MD_Message_fieldData(handle, id, &data, &size, &type) == isWhole, "finds a field, or not");
  if (isWhole) {
    MD_PROPERTY(data == MD_Message_getBinary(handle) + position && size == expectedSize && type == expectedType,
                "a field lies elsewhere");
    MD_PROPERTY(std::memcmp(data, expected, size) == 0, "a field has other bytes");
  } else {
    MD_PROPERTY(data == nullptr && size == 7 && type == 0xEE, "an output changes without a field");
  }

  MD_DateTime dateTime(20240115, 93000000, -300);
  const std::unique_ptr<MD_DateTimeCell, decltype(&MD_DateTime_delete)> fromC(
      MD_DateTime_new(dateTime.date(), dateTime.time(), dateTime.exch_gmt_offset()), &MD_DateTime_delete);
  MD_PROPERTY(MD_Message_readDateTime(handle, id, fromC.get()) == message.get(id, dateTime),
              "reads a date-time, or not");
  std::string word(8, '\0');
  MD_PROPERTY(MD_DateTime_serialize(word.data(), fromC.get()) && word == serialised(dateTime),
              "reads another date-time");
}

void copyBoth(MD_MessageHandle to, MD_Message& toMessage, MD_MessageHandle from, const MD_Message& fromMessage,
              bool handlerThrows) {
  const Assertions assertions(handlerThrows);
  const bool isDone = finishes([&] { toMessage.copyMsg(fromMessage); });
  const std::string asserted = Assertions::take();
  MD_PROPERTY(MD_Message_copyMsg(to, from) == isDone, "copies, or not");
  MD_PROPERTY(Assertions::take() == asserted, "a copy asserts otherwise");
}

void checkDictionary(FuzzInput& input) {
  checkIdLookUps(input.someId());
  const std::uint16_t id = input.number<std::uint16_t>();
  checkIdLookUps(id);
  const char* const name = MD_FieldMap_idToName(id);
  checkNameLookUps(name != nullptr ? name : input.bytes(input.below(12)));

  test::Ids ids;
  for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
    ids.push_back(row.id);
    checkNameLookUps(row.name);
  }
  MD_PROPERTY(MD_FieldMap_size() == ids.size(), "counts other fields");
  checkIds(ids, input, &MD_FieldMap_copyIds);
}

void checkNullExtArguments(MD_MessageHandle handle, std::uint16_t id) {
  const test::Bytes before(MD_Message_getBinary(handle), MD_Message_getBinary(handle) + MD_Message_getSize(handle));
  const NoMessage noMessage;
  checkWithoutMessage(nullptr, handle, id);
  checkWithoutMessage(noMessage.get(), handle, id);
  std::uint16_t ids[1] = {id};
  char text[1] = {'?'};
  refuse(MD_Message_copyFieldIds(handle, ids, 1, nullptr) || MD_Message_toText(handle, text, 1, nullptr) ||
         MD_Message_toPriceText(handle, text, 1, nullptr));
  const std::uint8_t* data = nullptr;
  std::uint32_t size = 7;
  std::uint8_t type = 0xEE;
  refuse(MD_Message_fieldData(handle, id, nullptr, &size, &type) ||
         MD_Message_fieldData(handle, id, &data, nullptr, &type) ||
         MD_Message_fieldData(handle, id, &data, &size, nullptr) || MD_Message_readDateTime(handle, id, nullptr));
  std::uint16_t nameId = kMarked;
  refuse(MD_FieldMap_idToType(id, nullptr) || MD_FieldMap_nameToId(nullptr, &nameId) ||
         MD_FieldMap_nameToId("BID", nullptr) || MD_FieldMap_nameToType(nullptr, &type) ||
         MD_FieldMap_nameToType("BID", nullptr) || MD_FieldMap_copyIds(ids, 1, nullptr));
  MD_PROPERTY(ids[0] == id && text[0] == '?' && data == nullptr && size == 7 && type == 0xEE && nameId == kMarked,
              "an output changes for a null pointer");
  const std::uint8_t* const bytes = MD_Message_getBinary(handle);
  MD_PROPERTY(std::equal(before.begin(), before.end(), bytes, bytes + MD_Message_getSize(handle)),
              "a message changes for a null pointer");
}

}  // namespace MD::fuzz
