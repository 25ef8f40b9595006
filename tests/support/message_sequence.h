// A sequence of operations on two messages and their models, compared after each step.
#ifndef MD_TESTS_SUPPORT_MESSAGE_SEQUENCE_H
#define MD_TESTS_SUPPORT_MESSAGE_SEQUENCE_H

#include <cstdint>
#include <cstring>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/messages.h"
#include "support/reference_comparison.h"
#include "support/reference_model.h"

namespace MD::test {

/// Ids to choose from, of kDictionary and some others.
inline constexpr std::uint16_t kIds[] = {id::kChar,      id::kChar2,    id::kInt,      id::kInt2,      id::kInt64,
                                         id::kInt64b,    id::kFloat,    id::kFloat2,   id::kDouble,    id::kDouble2,
                                         id::kString,    id::kString2,  id::kBuffer,   id::kBuffer2,   id::kDateTime,
                                         id::kDateTime2, id::kEpochNS,  id::kEpochNS2, id::kOptiPrice, id::kShort,
                                         id::kRaw,       id::kFraction, id::kHigh,     id::kUnknown,   id::kBeyond};

/// What to do next: a source of numbers, and operations, ids, values and received bytes made of them.
class Choices {
 public:
  virtual ~Choices() = default;

  /// A number below `limit`, which is not 0.
  virtual unsigned below(unsigned limit) = 0;
  /// Any number.
  virtual std::uint64_t word() = 0;
  /// Characters of any kind.
  virtual std::string text(unsigned length) = 0;

  // The last number, not the first: zeros, of which inputs are full, choose the ordinary.
  bool oneIn(unsigned count) { return below(count) == count - 1; }

  std::uint16_t someId() { return kIds[below(std::size(kIds))]; }

  /// A list of ids, with repetitions and absent ones among them.
  Ids someIds(const MD_Message& message) {
    const Ids present = idsOf(message);
    Ids ids;
    for (unsigned count = below(oneIn(4) ? 20 : 5); count > 0; --count) {
      ids.push_back(oneIn(4) || present.empty() ? someId() : present[below(static_cast<unsigned>(present.size()))]);
    }
    return ids;
  }

  std::string someText() {
    const unsigned length = oneIn(5000) ? 65535 - below(3)
                            : oneIn(12) ? 252 + below(6)
                            : oneIn(20) ? below(2000)
                                        : below(12);
    return text(length);
  }

  std::string someNumber(unsigned bytes) {
    static const std::int64_t kEdges[] = {0, 1, -1, 127, 128, 255, 256, 32767, 32768, -128, -32768, 65535, 65536};
    std::int64_t number = below(40000);
    if (oneIn(2)) {
      number = kEdges[below(std::size(kEdges))];
    } else if (oneIn(2)) {
      number = static_cast<std::int64_t>(word());
    }
    std::string raw(sizeof number, '\0');
    std::memcpy(raw.data(), &number, sizeof number);
    raw.resize(bytes);
    return raw;
  }

  /// A value of the field's own type, or now and then of another.
  ModelValue someValue(std::uint16_t id) {
    const auto& types = valueTypes();
    auto type = std::find_if(types.begin(), types.end(),
                             [&](const ValueType& row) { return row.field == id || row.otherField == id; });
    std::uint8_t code = type != types.end() ? type->code : std::uint8_t{DATATYPES::INT};
    if (oneIn(8)) {
      code = types[below(static_cast<unsigned>(types.size()))].code;
    }
    switch (code) {
      case DATATYPES::CHAR:
        return {code, someNumber(1)};
      case DATATYPES::INT:
      case DATATYPES::FLOAT:
        return {code, someNumber(4)};
      case DATATYPES::STRING:
      case DATATYPES::BUFFER:
        return {code, someText()};
      default:
        return {code, someNumber(8)};
    }
  }

  /// Calls `use` with the value as the library takes it.
  template <class Use>
  static bool withTyped(const ModelValue& value, Use use) {
    switch (value.type) {
#define MD_CASE(T, name, code) \
  case code:                   \
    return use(typed<T>(value.raw));
      MD_VALUE_TYPES(MD_CASE)
#undef MD_CASE
      default:
        return false;
    }
  }

  template <class T>
  static T typed(const std::string& raw) {
    if constexpr (std::is_same_v<T, MD_Message::String>) {
      return {raw.data(), static_cast<std::uint16_t>(raw.size())};
    } else if constexpr (std::is_same_v<T, MD_Message::Buffer>) {
      return bufferOf(raw);
    } else {
      T value{};
      std::memcpy(static_cast<void*>(&value), raw.data(), sizeof value);
      return value;
    }
  }

  /// Bytes to receive: those of a message, mostly corrupted in some way.
  Bytes someBytes(const MD_Message& message) {
    Bytes bytes = bytesOf(message);
    if (bytes.size() > 4000) {
      bytes.resize(4000);
    }
    for (unsigned changes = below(4); changes > 0; --changes) {
      const auto size = static_cast<unsigned>(bytes.size());
      const unsigned at = size == 0 ? 0 : below(size);
      const auto position = bytes.begin() + at;
      switch (below(7)) {
        case 0:
          bytes.resize(at);
          break;
        case 1:
          if (size != 0) {
            bytes[at] = static_cast<std::uint8_t>(below(256));
          }
          break;
        case 2:
          if (size != 0) {
            bytes[at] = static_cast<std::uint8_t>(bytes[at] ^ 1 << below(8));
          }
          break;
        case 3:
          bytes.insert(position, 1 + below(4), static_cast<std::uint8_t>(below(256)));
          break;
        case 4:
          bytes.erase(position, bytes.begin() + std::min(size, at + 1 + below(6)));
          break;
        case 5: {  // the records of a whole message once more
          const Bytes more = bytesOf(message);
          const std::size_t skipped = message.getPB() == ReferenceMessage::kMsgT ? 4 : 1;
          if (more.size() > skipped && more.size() < 4000) {
            bytes.insert(bytes.end(), more.begin() + static_cast<std::ptrdiff_t>(skipped), more.end());
          }
          break;
        }
        default: {
          const std::uint16_t id = someId();
          const auto low = static_cast<std::uint8_t>(id);
          const auto high = static_cast<std::uint8_t>(id >> 8);
          const bool isBig = message.getPB() == ReferenceMessage::kMsgT;
          const std::uint8_t idBytes[] = {isBig ? high : low, isBig ? low : high};
          bytes.insert(position, std::begin(idBytes), std::end(idBytes));
        }
      }
    }
    return bytes;
  }
};

/// One sequence of operations on two messages and their models.
class MessageSequence {
 public:
  MessageSequence(ReferenceMessage::Encoding encoding, Choices& choices)
      : m_choices(choices), m_encoding(encoding), m_pairs{Pair(encoding), Pair(encoding)} {}

  /// Runs one operation and compares. @return whether all is well
  bool runStep() {
    step();
    return m_failure.empty();
  }

  /// Compares all that can be read. @return what went wrong here or before, empty when nothing did
  std::string finish() {
    for (Pair& pair : m_pairs) {
      for (const std::uint16_t id : kIds) {
        fail(fieldDifference(*pair.message, pair.model, id));
      }
      fail(printDifference(*pair.message, pair.model));
    }
    return m_failure.empty() ? "" : m_log + m_failure;
  }

 private:
  struct Pair {
    explicit Pair(ReferenceMessage::Encoding encoding) : message(MD_Message::createFromPB(encoding)), model(encoding) {}

    std::unique_ptr<MD_Message> message;
    ReferenceMessage model;
  };

  void step() {
    Pair& pair = m_pairs[m_choices.below(2)];
    Pair& other = m_pairs[&pair == &m_pairs[0] ? 1 : 0];
    MD_Message& message = *pair.message;
    const std::uint16_t id = m_choices.someId();
    const unsigned operation = m_choices.below(17);
    CapturedErrors errors;
    switch (operation) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const ModelValue value = m_choices.someValue(id);
        log("add", id, value);
        expect(Choices::withTyped(value, [&](auto typed) { return message.add(id, typed); }) ==
               pair.model.add(id, value));
        break;
      }
      case 4:
      case 5:
      case 6:
      case 7: {
        const ModelValue value = m_choices.someValue(id);
        log("update", id, value);
        expect(Choices::withTyped(value, [&](auto typed) { return message.update(id, typed); }) ==
               pair.model.update(id, value));
        break;
      }
      case 8:
        updateWithOwnView(pair, id);
        break;
      case 9:
        log("erase", id);
        expect(message.eraseImpl(id) == pair.model.erase(id));
        break;
      case 10: {
        const Ids ids = m_choices.someIds(message);
        log("erase many", 0, ids);
        if (m_choices.oneIn(2)) {
          expect(message.eraseArrayImpl(ids) == pair.model.eraseMany(ids));
        } else {
          const std::set<std::uint16_t> set(ids.begin(), ids.end());
          expect(message.eraseSetImpl(set) == pair.model.eraseMany(set));
        }
        break;
      }
      case 11:
        if (m_choices.oneIn(4)) {
          log("clear");
          message.clearImpl();
          pair.model.clear();
        }
        break;
      case 12: {
        const Bytes bytes = m_choices.someBytes(*m_pairs[m_choices.below(2)].message);
        log("receive", 0, bytes);
        const HeapBlock block(bytes);
        if (m_choices.oneIn(3) && !bytes.empty() && bytes[0] == m_encoding) {
          pair.message = MD_Message::createFromBytes(block.data(), block.size());
        } else {
          expect(message.setBinaryImpl(block.data(), block.size()));
        }
        pair.model.setBinary(bytes);
        break;
      }
      case 13:
        log("clone");
        pair.message = message.clone();
        break;
      case 14: {
        log("move");
        auto moved = message.moveToNew();
        if (m_choices.oneIn(2)) {
          message.clearImpl();
          compareEmptied(message);
        }
        pair.message = std::move(moved);
        break;
      }
      case 15: {
        Pair& source = m_pairs[m_choices.below(2)];
        log(&source == &pair ? "copy from itself" : "copy");
        const RecordedAssertions assertions;
        message.copyMsg(*source.message);
        pair.model.copyFrom(source.model);
        break;
      }
      default:
        log("swap");
        message.swap(*other.message);
        pair.model.swap(other.model);
    }
    const std::string written = errors.take();
    const std::string expected = pair.model.takeErrors();
    if (written != expected) {
      fail("wrote\n" + written + "instead of\n" + expected);
    }
    fail(differenceOf(*pair.message, pair.model));
    fail(differenceOf(*other.message, other.model));
    fail(fieldDifference(*pair.message, pair.model, id));
  }

  /// Adds or updates a field with a view of another, or of itself, in the same message.
  void updateWithOwnView(Pair& pair, std::uint16_t target) {
    std::uint8_t type = 0;
    std::uint32_t size = 0;
    const std::uint8_t* data = pair.message->fieldData(m_choices.someId(), type, size);
    if (data == nullptr) {
      return;
    }
    const auto left = static_cast<std::uint32_t>(pair.message->getBinary() + pair.message->getSizeImpl() - data);
    const auto length = static_cast<std::uint16_t>(std::min({size, left, 65535u}));
    const std::uint16_t first = length == 0 ? std::uint16_t{0} : static_cast<std::uint16_t>(m_choices.below(length));
    const MD_Message::Buffer view(data + first, static_cast<std::uint16_t>(length - first));
    const ModelValue value{m_choices.oneIn(2) ? std::uint8_t{DATATYPES::STRING} : std::uint8_t{DATATYPES::BUFFER},
                           rawOf(view)};
    const bool isUpdate = !m_choices.oneIn(3);
    log(isUpdate ? "update with a view" : "add a view", target, value);
    bool result = false;
    if (value.type == DATATYPES::BUFFER) {
      result = isUpdate ? pair.message->update(target, view) : pair.message->add(target, view);
    } else {
      const MD_Message::String text(reinterpret_cast<const char*>(view.data), view.length);
      result = isUpdate ? pair.message->update(target, text) : pair.message->add(target, text);
    }
    expect(result == (isUpdate ? pair.model.update(target, value) : pair.model.add(target, value)));
  }

  void compareEmptied(const MD_Message& message) {
    if (hexOf(message) != hexOf(*message.createEmpty()) || message.fieldCount() != 0) {
      fail("what was moved from is not empty after a clear: " + hexOf(message));
    }
  }

  void expect(bool isSame) {
    if (!isSame) {
      fail("the result differs");
    }
  }
  /// Keeps the first failure; none when `what` is empty.
  void fail(const std::string& what) {
    if (m_failure.empty()) {
      m_failure = what;
    }
  }

  void log(const char* operation, unsigned id = 0, const ModelValue& value = {0, ""}) {
    m_log += std::string(operation) + " " + std::to_string(id) + " type " + std::to_string(value.type) + " length " +
             std::to_string(value.raw.size()) + "\n";
  }
  void log(const char* operation, unsigned, const Ids& ids) {
    m_log += operation;
    for (const std::uint16_t id : ids) {
      m_log += " " + std::to_string(id);
    }
    m_log += "\n";
  }
  void log(const char* operation, unsigned, const Bytes& bytes) {
    m_log += std::string(operation) + " " + toHex(bytes) + "\n";
  }

  Choices& m_choices;
  ReferenceMessage::Encoding m_encoding;
  Pair m_pairs[2];
  std::string m_log;
  std::string m_failure;
};

}  // namespace MD::test

#endif
