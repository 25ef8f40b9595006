#include "md_message_c_ext.h"

#include <cstring>

#include <algorithm>
#include <exception>
#include <iterator>
#include <locale>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "cells.h"
#include "md/md_assert.h"
#include "md/md_datatypes.h"
#include "md/md_delta.h"
#include "md/md_field_check.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_price_output.h"
#include "md/md_report.h"

using MD::MD_FieldMap;
using MD::MD_Message;

static_assert(MD_ENCODING_ITERMAP == int{MD::ENCODINGS::ITERMAP} && MD_ENCODING_MINT == int{MD::ENCODINGS::MINT} &&
              MD_ENCODING_MSGT == int{MD::ENCODINGS::MSGT} && std::size(MD::ENCODINGS::kAll) == 3);

#define MD_SAME_CODE(name) static_assert(MD_TYPE_##name == int{MD::DATATYPES::name})
MD_SAME_CODE(CHAR);
MD_SAME_CODE(INT);
MD_SAME_CODE(FLOAT);
MD_SAME_CODE(DOUBLE);
MD_SAME_CODE(STRING);
MD_SAME_CODE(BUFFER);
MD_SAME_CODE(INT64);
MD_SAME_CODE(DATETIME);
MD_SAME_CODE(EPOCH_NSEC);
MD_SAME_CODE(RAW);
MD_SAME_CODE(SHORT);
MD_SAME_CODE(VECTOR);
MD_SAME_CODE(MSG_T);
MD_SAME_CODE(DATE);
MD_SAME_CODE(TIME);
MD_SAME_CODE(FRACTION);
MD_SAME_CODE(CHILD_MSG);
MD_SAME_CODE(FOLDED_INT);
MD_SAME_CODE(UINT);
MD_SAME_CODE(LONG_INT);
MD_SAME_CODE(ULONG_INT);
#undef MD_SAME_CODE

namespace {

/// What `work` returns, or a null result when it throws.
template <class Work>
auto withoutExceptions(Work work) noexcept -> decltype(work()) {
  try {
    return work();
  } catch (...) {
    return {};
  }
}

bool isHeld(MD_MessageHandle message) noexcept { return message != nullptr && message->message != nullptr; }

/// A handle of the message that `make` returns; null for none.
template <class Make>
MD_MessageHandle newHandle(Make make) noexcept {
  return withoutExceptions([&]() -> MD_MessageHandle {
    auto cell = std::make_unique<MD_MessageCell>();
    cell->hold(make());
    return cell->message != nullptr ? cell.release() : nullptr;
  });
}

/// Counts the characters that are written to it and keeps those for which a caller has room.
class BoundedText : public std::streambuf {
 public:
  BoundedText(char* text, std::size_t capacity) : m_text(text), m_capacity(text != nullptr ? capacity : 0) {}

  /// Terminates the stored text. @return whether it is complete, or no text was requested
  bool terminate() noexcept {
    if (m_capacity != 0) {
      m_text[std::min(m_length, m_capacity - 1)] = '\0';
    }
    return m_text == nullptr || m_length < m_capacity;
  }

  void forget() noexcept { m_length = 0; }
  std::size_t length() const noexcept { return m_length; }

 private:
  int_type overflow(int_type character) override {
    if (!traits_type::eq_int_type(character, traits_type::eof())) {
      const char single = traits_type::to_char_type(character);
      xsputn(&single, 1);
    }
    return traits_type::not_eof(character);
  }

  std::streamsize xsputn(const char* characters, std::streamsize count) override {
    const auto added = static_cast<std::size_t>(count);
    if (m_length < m_capacity) {
      std::memcpy(m_text + m_length, characters, std::min(added, m_capacity - m_length));
    }
    m_length += added;
    return count;
  }

  char* m_text;
  std::size_t m_capacity;
  std::size_t m_length = 0;
};

/// Prints a message by the given output wrapper.
template <class Wrap>
bool printTo(MD_MessageHandle message, char* text, std::size_t capacity, std::size_t* length, Wrap wrap) noexcept {
  if (!isHeld(message) || length == nullptr) {
    return false;
  }
  return withoutExceptions([&] {
    BoundedText bounded(text, capacity);
    try {
      std::ostream out(&bounded);
      out.imbue(std::locale::classic());
      // A stream would otherwise keep running out of memory to itself.
      out.exceptions(std::ios_base::badbit);
      out << wrap(*message->message);
    } catch (...) {
      bounded.forget();
      bounded.terminate();
      throw;
    }
    *length = bounded.length();
    return bounded.terminate();
  });
}

/// Returns `found` ids, starting at `first`; `idOf` extracts the id from an element.
template <class Iterator, class IdOf>
bool handOut(Iterator first, std::size_t found, std::uint16_t* ids, std::size_t capacity, std::size_t* count,
             IdOf idOf) {
  *count = found;
  if (ids == nullptr) {
    return true;
  }
  const std::size_t written = std::min(found, capacity);
  for (std::size_t i = 0; i < written; ++i, ++first) {
    ids[i] = idOf(*first);
  }
  return written == found;
}

/// Reports the fields that were not copied. @return whether there is none
bool tellRest(const std::vector<std::uint16_t>& rest, std::uint16_t* ids, std::size_t capacity, std::size_t* count) {
  if (ids != nullptr) {
    std::copy_n(rest.begin(), std::min(rest.size(), capacity), ids);
  }
  if (count != nullptr) {
    *count = rest.size();
  }
  return rest.empty();
}

/// Looks up a field and hands it to `use`.
/// @return what `use` returned, null or false for an unknown field
template <class Find, class Use>
auto withField(Find find, Use use) noexcept {
  return withoutExceptions([&]() -> decltype(use(MD::FIELDS::field_rec())) {
    const MD_FieldMap& map = MD_FieldMap::instance();
    const auto row = find(map);
    if (row == map.end()) {
      return {};
    }
    return use(*row);
  });
}

auto byId(std::uint16_t id) noexcept {
  return [id](const MD_FieldMap& map) { return map.findById(id); };
}

auto byName(const char* name) noexcept {
  return [name](const MD_FieldMap& map) { return map.findByName(name); };
}

/// Writes an error text for as far as there is room.
void tell(const char* why, char* error, std::size_t capacity) noexcept {
  if (error != nullptr && capacity != 0) {
    const std::size_t length = std::min(std::strlen(why), capacity - 1);
    std::memcpy(error, why, length);
    error[length] = '\0';
  }
}

/// What `work` reports; nothing for one that reports nothing.
template <class Work>
std::string reportOf(Work work) {
  if constexpr (std::is_void_v<decltype(work())>) {
    work();
    return {};
  } else {
    return to_string(work());
  }
}

/// Runs `work` and returns its result.
template <class Work>
bool succeeds(Work work, char* error, std::size_t capacity) noexcept {
  tell("unknown error", error, capacity);
  return withoutExceptions([&] {
    try {
      tell(reportOf(work).c_str(), error, capacity);
      return true;
    } catch (const std::bad_alloc&) {
      tell("out of memory", error, capacity);
    } catch (const std::exception& exception) {
      tell(exception.what(), error, capacity);
    }
    return false;
  });
}

/// The same for a load. One that fails leaves no field, not even one that it came to.
template <class Load>
bool loads(Load load, char* error, std::size_t capacity) noexcept {
  return succeeds(load, error, capacity) || withoutExceptions([] {
           MD_FieldMap::reload_xml("");
           return false;
         });
}

/// The same for a load from `source`, which must not be null.
template <class Load>
bool loadsFrom(const char* source, Load load, char* error, std::size_t capacity) noexcept {
  if (source == nullptr) {
    tell("null pointer", error, capacity);
    return false;
  }
  return loads(load, error, capacity);
}

}  // namespace

MD_MessageHandle MD_Message_createFromPB(uint8_t code) {
  return newHandle([=] { return MD_Message::createFromPB(code); });
}

MD_MessageHandle MD_Message_createPreferred(bool cached) {
  return newHandle([=] { return MD_Message::createPreferred(cached); });
}

MD_MessageHandle MD_Message_tryCreateFromBytes(const unsigned char* bytes, uint32_t size) {
  return newHandle([=] { return MD_Message::createFromBytes(bytes, size); });
}

MD_MessageHandle MD_Message_createEmpty(MD_MessageHandle message) {
  return isHeld(message) ? newHandle([=] { return message->message->createEmpty(); }) : nullptr;
}

MD_MessageHandle MD_Message_clone(MD_MessageHandle message) {
  return isHeld(message) ? newHandle([=] { return message->message->clone(); }) : nullptr;
}

uint8_t MD_Message_getPB(MD_MessageHandle message) { return message != nullptr ? message->code : std::uint8_t{0}; }

const uint8_t* MD_Message_getBinary(MD_MessageHandle message) {
  return isHeld(message) ? message->message->getBinary() : nullptr;
}

bool MD_Message_copyMsg(MD_MessageHandle to, MD_MessageHandle from) {
  return isHeld(to) && isHeld(from) && withoutExceptions([=] {
           to->message->copyMsg(*from->message);
           return true;
         });
}

bool MD_Message_copyReadable(MD_MessageHandle to, MD_MessageHandle from, uint16_t* not_copied, size_t capacity,
                             size_t* count) {
  return isHeld(to) && isHeld(from) && withoutExceptions([=] {
           return tellRest(MD::copyReadable(*from->message, *to->message), not_copied, capacity, count);
         });
}

bool MD_Message_copyFields(MD_MessageHandle to, MD_MessageHandle from, const uint16_t* ids, size_t id_count,
                           uint16_t* not_copied, size_t capacity, size_t* count) {
  return isHeld(to) && isHeld(from) && ids != nullptr && withoutExceptions([=] {
           const std::vector<std::uint16_t> listed(ids, ids + id_count);
           return tellRest(MD::copyFields(*from->message, listed, *to->message), not_copied, capacity, count);
         });
}

bool MD_Message_sameFields(MD_MessageHandle a, MD_MessageHandle b) {
  return isHeld(a) && isHeld(b) && withoutExceptions([=] { return MD::sameFields(*a->message, *b->message); });
}

bool MD_Message_diff(MD_MessageHandle before, MD_MessageHandle after, MD_MessageHandle delta, uint16_t removed_ids,
                     const uint16_t* keys, size_t key_count) {
  return isHeld(before) && isHeld(after) && isHeld(delta) && withoutExceptions([=] {
           std::vector<std::uint16_t> listed(keys, keys != nullptr ? keys + key_count : keys);
           MD::Delta made(MD::Field<MD_Message::Buffer>(removed_ids), std::move(listed));
           return made.diff(*before->message, *after->message, *delta->message);
         });
}

bool MD_Message_applyDelta(MD_MessageHandle state, MD_MessageHandle delta, uint16_t removed_ids) {
  return isHeld(state) && isHeld(delta) && withoutExceptions([=] {
           return MD::Delta(MD::Field<MD_Message::Buffer>(removed_ids)).apply(*delta->message, *state->message);
         });
}

bool MD_Message_copyFieldIds(MD_MessageHandle message, uint16_t* ids, size_t capacity, size_t* count) {
  return isHeld(message) && count != nullptr && withoutExceptions([=] {
           std::vector<std::uint16_t> found;
           message->message->getFieldIdsImpl(found);
           return handOut(found.begin(), found.size(), ids, capacity, count, [](std::uint16_t id) { return id; });
         });
}

bool MD_Message_toText(MD_MessageHandle message, char* text, size_t capacity, size_t* length) {
  return printTo(message, text, capacity, length, [](const MD_Message& held) -> const MD_Message& { return held; });
}

bool MD_Message_toPriceText(MD_MessageHandle message, char* text, size_t capacity, size_t* length) {
  return printTo(message, text, capacity, length, [](const MD_Message& held) { return MD::PriceOutput(held); });
}

bool MD_Message_toSafeText(MD_MessageHandle message, char* text, size_t capacity, size_t* length) {
  return printTo(message, text, capacity, length, [](const MD_Message& held) { return to_string(held); });
}

bool MD_Message_toSafePriceText(MD_MessageHandle message, char* text, size_t capacity, size_t* length) {
  return printTo(message, text, capacity, length,
                 [](const MD_Message& held) { return to_string(MD::PriceOutput(held)); });
}

bool MD_Message_fieldData(MD_MessageHandle message, uint16_t id, const uint8_t** data, uint32_t* size, uint8_t* type) {
  if (!isHeld(message) || data == nullptr || size == nullptr || type == nullptr) {
    return false;
  }
  return withoutExceptions([=] {
    const MD_Message& held = *message->message;
    std::uint8_t foundType = 0;
    std::uint32_t foundSize = 0;
    const std::uint8_t* const found = held.fieldData(id, foundType, foundSize);
    if (found == nullptr || foundSize > static_cast<std::uint64_t>(held.getBinary() + held.getSizeImpl() - found)) {
      return false;
    }
    *data = found;
    *size = foundSize;
    *type = foundType;
    return true;
  });
}

bool MD_Message_readDateTime(MD_MessageHandle message, uint16_t id, MD_DateTimeHandle dt) {
  return isHeld(message) && dt != nullptr &&
         withoutExceptions([=] { return message->message->get(id, *dt->dateTime); });
}

const char* MD_FieldMap_idToName(uint16_t id) {
  return withField(byId(id), [](const MD::FIELDS::field_rec& field) { return field.name.c_str(); });
}

bool MD_FieldMap_idToType(uint16_t id, uint8_t* type) {
  return type != nullptr && withField(byId(id), [=](const MD::FIELDS::field_rec& field) {
           *type = field.type;
           return true;
         });
}

bool MD_FieldMap_nameToId(const char* name, uint16_t* id) {
  return name != nullptr && id != nullptr && withField(byName(name), [=](const MD::FIELDS::field_rec& field) {
           *id = field.id;
           return true;
         });
}

bool MD_FieldMap_nameToType(const char* name, uint8_t* type) {
  return name != nullptr && type != nullptr && withField(byName(name), [=](const MD::FIELDS::field_rec& field) {
           *type = field.type;
           return true;
         });
}

size_t MD_FieldMap_size(void) {
  return withoutExceptions([] { return MD_FieldMap::instance().size(); });
}

const char* MD_FieldMap_source(void) {
  return withoutExceptions([] { return MD_FieldMap::instance().source().c_str(); });
}

uint64_t MD_FieldMap_fingerprint(void) {
  return withoutExceptions([] { return MD_FieldMap::instance().fingerprint(); });
}

bool MD_FieldMap_checkFields(const MD_ExpectedField* fields, size_t count, char* error, size_t error_capacity) {
  const auto hasNoName = [](const MD_ExpectedField& field) { return field.name == nullptr; };
  if (fields == nullptr || std::any_of(fields, fields + count, hasNoName)) {
    tell("null pointer", error, error_capacity);
    return false;
  }
  const auto check = [=] {
    std::vector<MD::ExpectedField> expected;
    expected.reserve(count);
    std::transform(fields, fields + count, std::back_inserter(expected), [](const MD_ExpectedField& field) {
      return MD::ExpectedField{field.name, field.id, field.type};
    });
    MD::checkFields(expected.data(), count);
  };
  return succeeds(check, error, error_capacity);
}

bool MD_FieldMap_copyIds(uint16_t* ids, size_t capacity, size_t* count) {
  return count != nullptr && withoutExceptions([=] {
           const MD_FieldMap& map = MD_FieldMap::instance();
           return handOut(map.begin(), map.size(), ids, capacity, count,
                          [](const MD::FIELDS::field_rec& field) { return field.id; });
         });
}

bool MD_FieldMap_reload(const char* path, char* error, size_t error_capacity) {
  return loads([=] { MD_FieldMap::reload(path != nullptr ? path : ""); }, error, error_capacity);
}

bool MD_FieldMap_reload_xml(const char* path, char* error, size_t error_capacity) {
  return loadsFrom(
      path, [=] { MD_FieldMap::reload_xml(path); }, error, error_capacity);
}

bool MD_FieldMap_reload_xml_memory(const char* xml, size_t length, char* error, size_t error_capacity) {
  const auto load = [=] {
    std::istringstream stream(std::string(xml, length));
    MD_FieldMap::reload_xml(stream, "XML in memory");
  };
  return loadsFrom(xml, load, error, error_capacity);
}

bool MD_FieldMap_reload_text(const char* path, char* error, size_t error_capacity) {
  return loadsFrom(
      path, [=] { MD_FieldMap::reload_text(path); }, error, error_capacity);
}

bool MD_FieldMap_reload_text_memory(const char* text, size_t length, char* error, size_t error_capacity) {
  const auto load = [=] {
    std::istringstream stream(std::string(text, length));
    stream.imbue(std::locale::classic());
    MD_FieldMap::reload_text(stream, "text in memory");
  };
  return loadsFrom(text, load, error, error_capacity);
}

bool MD_FieldMap_loadText(const char* text, size_t length, char* report, size_t report_capacity) {
  return loadsFrom(
      text,
      [=] {
        return MD_FieldMap::loadText({text, length});
      },
      report, report_capacity);
}

bool MD_FieldMap_loadTextFile(const char* path, char* report, size_t report_capacity) {
  return loadsFrom(
      path, [=] { return MD_FieldMap::loadTextFile(path); }, report, report_capacity);
}

MD_AssertionHandler MD_set_assertion_handler(MD_AssertionHandler handler) { return MD::set_assertion_handler(handler); }

MD_ReportHandler MD_set_report_handler(MD_ReportHandler handler) { return MD::set_report_handler(handler); }

const char* MD_version(void) { return MD_VERSION; }
