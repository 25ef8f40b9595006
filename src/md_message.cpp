#include "md/md_message.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <ostream>
#include <utility>

#include "assertion.h"
#include "field_copy.h"
#include "field_list.h"
#include "message_memory.h"
#include "message_printer.h"
#include "own_class.h"
#include "report.h"
#include "value_dispatch.h"

namespace MD {
namespace {

using detail::kMessageFile;
using detail::withValueOfType;

}  // namespace

const MD_Message::Allocator MD_Message::DEFAULT_ALLOCATOR;

void* MD_Message::operator new(std::size_t sizeBytes) {
  return sizeBytes == detail::MessageMemory::kObjectBytes ? detail::MessageMemory::take() : ::operator new(sizeBytes);
}

void* MD_Message::operator new(std::size_t sizeBytes, const std::nothrow_t&) noexcept {
  try {
    return operator new(sizeBytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void MD_Message::operator delete(void* memory, std::size_t sizeBytes) noexcept {
  if (sizeBytes == detail::MessageMemory::kObjectBytes) {
    detail::MessageMemory::giveBack(memory);
  } else {
    ::operator delete(memory);
  }
}

// Called when a constructor throws, for an object of unknown size.
void MD_Message::operator delete(void* memory, const std::nothrow_t&) noexcept { ::operator delete(memory); }

MD_Message::MD_Message() : MD_Message(DEFAULT_ALLOCATOR) {}

MD_Message::MD_Message(const Allocator& allocator)
    : m_map(&MD_FieldMap::instance()), m_data(true, allocator.first), m_optimizer(true, allocator.second) {}

MD_Message::~MD_Message() = default;

bool MD_Message::get(std::uint16_t id, std::string& out) const {
  String text;
  if (!getImpl(id, text)) {
    return false;
  }
  out.assign(text.data, text.length);
  return true;
}

bool MD_Message::get(std::uint16_t id, std::string_view& out) const {
  String text;
  if (!getImpl(id, text)) {
    return false;
  }
  out = text;
  return true;
}

bool MD_Message::readVariant(std::uint16_t id, MD_Variant& out, Unreadable unreadable) const {
  const FIELDS::packed_rec field = m_map->packed(id);
  if (!field.isKnown()) {
    return false;
  }
  return withValueOfType(field.type, unreadable == Unreadable::IsAssertedAgainst ? 177 : 0, [&](auto value) {
    if (!getImpl(id, value)) {
      return false;
    }
    out.set(value);
    return true;
  });
}

bool MD_Message::get(std::uint16_t id, MD_Variant& out) const {
  return readVariant(id, out, Unreadable::IsAssertedAgainst);
}

bool MD_Message::add(std::uint16_t id, const MD_Variant& value) {
  return withValueOfType(m_map->packed(id).type, 217,
                         [&](auto sample) { return addImpl(id, value.get<decltype(sample)>()); });
}

bool MD_Message::update(std::uint16_t id, const MD_Variant& value) {
  return withValueOfType(m_map->packed(id).type, 257,
                         [&](auto sample) { return updateImpl(id, value.get<decltype(sample)>()); });
}

// What can fail for want of memory comes before the first field is copied. No record is longer than its source's value,
// a head, and what a short value grows by. (Strings whose length an `IterMap` stores as 0 are not counted in.)
void MD_Message::reserveForCopy(const MD_Message& source, std::size_t fieldCount) {
  constexpr std::uint64_t kMostAdded = 8 + sizeof(std::uint64_t) + 1;
  const std::uint64_t bytes = m_data->size() + source.m_data->size() + kMostAdded * fieldCount;
  m_data->reserve(std::min<std::uint64_t>(bytes, std::numeric_limits<std::uint32_t>::max()));
  m_optimizer->fitDictionary();
}

/// Copies the listed fields. Asserts that each can be read there and stored here, or lists those that cannot.
void MD_Message::takeFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                            std::vector<std::uint16_t>* notCopied) {
  // Without a field nothing changes: views into this message stay good.
  if (ids.empty()) {
    return;
  }
  reserveForCopy(source, ids.size());
  takeReserved(source, ids, notCopied);
}

/// takeFields() after reserveForCopy().
void MD_Message::takeReserved(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                              std::vector<std::uint16_t>* notCopied) {
  // A message that is its own source erases at once: its reads would see records that are only marked.
  if (&source == this ||
      !detail::withOwnClass(*this, [&](auto& message) { message.takeFields(source, ids, notCopied); })) {
    detail::copyFields(source, *m_map, ids, notCopied,
                       [this](std::uint16_t id, auto value) { return addImpl(id, value) || updateImpl(id, value); });
  }
}

void MD_Message::copyMsg(const MD_Message& source) {
  std::vector<std::uint16_t> ids;
  source.getFieldIdsImpl(ids);
  takeFields(source, ids, nullptr);
}

/// Whether a field of another message can be read there, and stored here, where values may have `mostBytes`.
bool MD_Message::canTake(const MD_Message& source, std::uint16_t id, std::uint64_t mostBytes) const {
  const std::uint8_t type = m_map->packed(id).type;
  const bool isHeld = detail::withValueType(
      type, [&](auto value) { return source.getImpl(id, value) && detail::storedBytes(value) <= mostBytes; });
  if (!isHeld) {
    return false;
  }
  std::uint8_t storedType = 0;
  std::uint32_t sizeBytes = 0;
  return fieldData(id, storedType, sizeBytes) != nullptr ? storedType == type : !existsImpl(id);
}

std::vector<std::uint16_t> copyFields(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                                      MD_Message& target) {
  const detail::SilentReports silence;
  std::vector<std::uint16_t> taken;
  std::vector<std::uint16_t> notCopied;
  const std::uint64_t mostBytes = target.longestValueBytes();
  for (const std::uint16_t id : ids) {
    (target.canTake(source, id, mostBytes) ? taken : notCopied).push_back(id);
  }
  if (&source != &target) {
    target.takeFields(source, taken, &notCopied);
  }
  return notCopied;
}

std::vector<std::uint16_t> copyReadable(const MD_Message& source, MD_Message& target) {
  std::vector<std::uint16_t> ids;
  detail::listFields(source, ids);
  return copyFields(source, ids, target);
}

/// Erases the fields in `removed`, then copies the listed ones. @return false, and nothing is changed, when one of them
/// cannot be copied
bool MD_Message::takeChanges(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                             const std::vector<std::uint16_t>& removed) {
  // More than the sum no message becomes, apart from longer heads: what comes near the limit is not tried.
  if (size() + 2 * source.size() + 16 * ids.size() > kMostBytes) {
    return false;
  }
  bool areTaken = false;
  bool isAllOrNone = true;
  if (!detail::withOwnClass(
          *this, [&](const auto& message) { areTaken = message.canTakeAll(source, ids, removed, isAllOrNone); })) {
    areTaken =
        std::all_of(ids.begin(), ids.end(), [&](std::uint16_t id) { return canTake(source, id, longestValueBytes()); });
  }
  if (!areTaken) {
    return false;
  }
  if (isAllOrNone) {
    return takeAllOrSome(source, ids, removed);
  }
  const std::unique_ptr<MD_Message> changed = clone();
  if (!changed->takeAllOrSome(source, ids, removed)) {
    return false;
  }
  swap(*changed);
  return true;
}

/// takeChanges() of fields that can be taken one by one. @return false when one of them was not copied
bool MD_Message::takeAllOrSome(const MD_Message& source, const std::vector<std::uint16_t>& ids,
                               const std::vector<std::uint16_t>& removed) {
  // What can fail for want of memory comes before the first change.
  reserveForCopy(source, ids.size());
  if (!removed.empty()) {
    eraseArrayImpl(removed);
  }
  std::vector<std::uint16_t> notCopied;
  if (!ids.empty()) {
    takeReserved(source, ids, &notCopied);
  }
  return notCopied.empty();
}

bool MD_Message::getWND(std::uint16_t whole_id, std::uint16_t numerator_id, std::uint16_t denominator_id,
                        double& out) const {
  std::int32_t whole = 0;
  std::int32_t numerator = 0;
  std::int32_t denominator = 100;
  const bool hasWhole = getImpl(whole_id, whole);
  const bool hasNumerator = getImpl(numerator_id, numerator);
  const bool hasDenominator = getImpl(denominator_id, denominator);
  if (!hasWhole && !hasNumerator && !hasDenominator) {
    return false;
  }
  out = double{1} * numerator / denominator + whole;
  return true;
}

void MD_Message::get_field_ids(std::vector<std::uint16_t>& ids) const {
  ids.clear();
  getFieldIdsImpl(ids);
}

void MD_Message::swap(MD_Message& other) noexcept {
  m_data.swap(other.m_data);
  m_optimizer.swap(other.m_optimizer);
}

void MD_Message::print() const {}

void MD_Message::printError(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) const {
  detail::reportFieldLines(id, type, sizeBytes);
}

MD_Message::const_iterator MD_Message::begin() const {
  std::vector<std::uint16_t> ids;
  getFieldIdsImpl(ids);
  return {*this, std::move(ids), Unreadable::IsAssertedAgainst};
}

MD_Message::const_iterator MD_Message::end() const { return {*this, {}, Unreadable::IsAssertedAgainst}; }

MD_Message::const_iterator::const_iterator(const MD_Message& message, std::vector<std::uint16_t> ids,
                                           Unreadable unreadable)
    : m_message(&message), m_ids(std::move(ids)), m_unreadable(unreadable) {
  m_ids.push_back(kEnd);
  load();
}

void MD_Message::const_iterator::load() {
  m_field.id = m_ids[m_index];
  m_field.value.clear();
  if (m_field.id == kEnd) {
    return;
  }
  const bool b = m_message->readVariant(m_field.id, m_field.value, m_unreadable);
  if (m_unreadable == Unreadable::IsAssertedAgainst) {
    detail::check(b, "b == true", kMessageFile, __LINE__);
  }
}

MD_Message::const_iterator& MD_Message::const_iterator::operator++() {
  if (m_field.id != kEnd) {
    ++m_index;
    load();
  }
  return *this;
}

MD_Message::const_iterator MD_Message::const_iterator::operator++(int) {
  const_iterator before = *this;
  ++*this;
  return before;
}

std::ostream& operator<<(std::ostream& out, const MD_Message& message) {
  MessagePrinter(out, message, MessagePrinter::kPlainMode).print(message.begin());
  return out;
}

}  // namespace MD
