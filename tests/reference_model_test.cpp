// The same random operations on a message and on a model of it, compared after each step. Deterministic: a failure
// names the seed of its sequence.
#include "reference_model.h"

#include <cstdint>

#include <algorithm>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/messages.h"

namespace MD::test {
namespace {

constexpr std::uint16_t kIds[] = {id::kChar,      id::kChar2,    id::kInt,      id::kInt2,      id::kInt64,
                                  id::kInt64b,    id::kFloat,    id::kFloat2,   id::kDouble,    id::kDouble2,
                                  id::kString,    id::kString2,  id::kBuffer,   id::kBuffer2,   id::kDateTime,
                                  id::kDateTime2, id::kEpochNS,  id::kEpochNS2, id::kOptiPrice, id::kShort,
                                  id::kRaw,       id::kFraction, id::kHigh,     id::kUnknown,   id::kBeyond};

/// What to do next, the same for the same seed everywhere.
class RandomChoices {
 public:
  explicit RandomChoices(std::uint32_t seed) : m_random(seed) {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
  bool oneIn(unsigned count) { return below(count) == 0; }

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
    std::string text(length, ' ');
    for (char& c : text) {
      c = static_cast<char>(oneIn(8) ? below(256) : 'a' + below(26));
    }
    return text;
  }

  std::string someNumber(unsigned bytes) {
    static const std::int64_t kEdges[] = {0, 1, -1, 127, 128, 255, 256, 32767, 32768, -128, -32768, 65535, 65536};
    std::int64_t number = below(40000);
    if (oneIn(2)) {
      number = kEdges[below(std::size(kEdges))];
    } else if (oneIn(2)) {
      number = static_cast<std::int64_t>(std::uint64_t{m_random()} << 32 | m_random());
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

  /// Bytes to receive: those of a message, mostly damaged in some way.
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

 private:
  std::mt19937 m_random;
};

/// One sequence of operations on two messages and their models.
class Sequence : RandomChoices {
 public:
  Sequence(ReferenceMessage::Encoding encoding, std::uint32_t seed)
      : RandomChoices(seed), m_encoding(encoding), m_pairs{Pair(encoding), Pair(encoding)} {}

  /// @return what went wrong, empty when nothing did
  std::string run() {
    const unsigned steps = 10 + below(21);
    for (unsigned step = 0; step < steps && m_failure.empty(); ++step) {
      runStep();
    }
    for (Pair& pair : m_pairs) {
      for (const std::uint16_t id : kIds) {
        compareField(pair, id);
      }
      comparePrintOut(pair);
    }
    return m_failure.empty() ? "" : m_log + m_failure;
  }

 private:
  struct Pair {
    explicit Pair(ReferenceMessage::Encoding encoding) : message(MD_Message::createFromPB(encoding)), model(encoding) {}

    std::unique_ptr<MD_Message> message;
    ReferenceMessage model;
  };

  void runStep() {
    Pair& pair = m_pairs[below(2)];
    Pair& other = m_pairs[&pair == &m_pairs[0] ? 1 : 0];
    MD_Message& message = *pair.message;
    std::uint16_t id = someId();
    unsigned operation = below(16);
    if (const auto truncated = pair.model.truncatedField()) {
      // What is added behind a truncated record is taken for its value. Fields that overlap are not compared; the
      // truncated one can be replaced.
      operation = 7 + below(9);
      if (operation == kLastUpdate) {
        id = *truncated;
      } else if (operation == kOwnView) {
        operation = 9;
      }
    }
    CapturedErrors errors;
    switch (operation) {
      case 0:
      case 1:
      case 2:
      case 3: {
        const ModelValue value = someValue(id);
        log("add", id, value);
        expect(withTyped(value, [&](auto typed) { return message.add(id, typed); }) == pair.model.add(id, value));
        break;
      }
      case 4:
      case 5:
      case 6:
      case kLastUpdate: {
        const ModelValue value = someValue(id);
        log("update", id, value);
        expect(withTyped(value, [&](auto typed) { return message.update(id, typed); }) == pair.model.update(id, value));
        break;
      }
      case kOwnView:
        updateWithOwnView(pair, id);
        break;
      case 9:
        log("erase", id);
        expect(message.eraseImpl(id) == pair.model.erase(id));
        break;
      case 10: {
        const Ids ids = someIds(message);
        log("erase many", 0, ids);
        if (oneIn(2)) {
          expect(message.eraseArrayImpl(ids) == pair.model.eraseMany(ids));
        } else {
          const std::set<std::uint16_t> set(ids.begin(), ids.end());
          expect(message.eraseSetImpl(set) == pair.model.eraseMany(set));
        }
        break;
      }
      case 11:
        if (oneIn(4)) {
          log("clear");
          message.clearImpl();
          pair.model.clear();
        }
        break;
      case 12: {
        const Bytes bytes = someBytes(*m_pairs[below(2)].message);
        log("receive", 0, bytes);
        const HeapBlock block(bytes);
        if (oneIn(3) && !bytes.empty() && bytes[0] == m_encoding) {
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
        if (oneIn(2)) {
          message.clearImpl();
          compareEmptied(message);
        }
        pair.message = std::move(moved);
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
    compare(pair);
    compare(other);
    compareField(pair, id);
  }

  /// Adds or updates a field with a view of another, or of itself, in the same message.
  void updateWithOwnView(Pair& pair, std::uint16_t target) {
    std::uint8_t type = 0;
    std::uint32_t size = 0;
    const std::uint8_t* data = pair.message->fieldData(someId(), type, size);
    if (data == nullptr) {
      return;
    }
    const auto left = static_cast<std::uint32_t>(pair.message->getBinary() + pair.message->getSizeImpl() - data);
    const auto length = static_cast<std::uint16_t>(std::min({size, left, 65535u}));
    const std::uint16_t first = length == 0 ? std::uint16_t{0} : static_cast<std::uint16_t>(below(length));
    const MD_Message::Buffer view(data + first, static_cast<std::uint16_t>(length - first));
    const ModelValue value{oneIn(2) ? std::uint8_t{DATATYPES::STRING} : std::uint8_t{DATATYPES::BUFFER}, rawOf(view)};
    const bool isUpdate = !oneIn(3);
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

  void compare(const Pair& pair) {
    const MD_Message& message = *pair.message;
    const Bytes& bytes = pair.model.bytes();
    if (message.getSizeImpl() != bytes.size() || !std::equal(bytes.begin(), bytes.end(), message.getBinary())) {
      fail("holds " + hexOf(message) + "\ninstead of " + toHex(bytes));
      return;
    }
    if (message.fieldCount() != pair.model.fieldCount()) {
      fail("counts " + std::to_string(message.fieldCount()) + " fields instead of " +
           std::to_string(pair.model.fieldCount()));
    }
    if (idsOf(message) != pair.model.ids()) {
      fail("lists other ids");
    }
    if (message.emptyImpl() != pair.model.isEmpty()) {
      fail("is empty or not");
    }
  }

  void compareField(Pair& pair, std::uint16_t id) {
    const MD_Message& message = *pair.message;
    if (message.existsImpl(id) != pair.model.exists(id)) {
      fail("field " + std::to_string(id) + " exists or not");
    }
    std::uint8_t code = 0;
    std::uint32_t size = 0;
    const std::uint8_t* const data = message.fieldData(id, code, size);
    const auto located = pair.model.locate(id);
    if ((data != nullptr) != located.has_value() || (located && (located->type != code || located->sizeBytes != size ||
                                                                 message.getBinary() + located->offset != data))) {
      fail("field " + std::to_string(id) + " lies elsewhere");
    }
    CapturedErrors errors;
    for (const ValueType& type : valueTypes()) {
      std::string raw;
      const bool result = type.get(message, id, 0, raw);
      const auto expected = pair.model.get(id, type.code);
      if (result != expected.has_value() || raw != (expected ? *expected : type.raw(0))) {
        fail("field " + std::to_string(id) + " reads otherwise as " + type.name);
      }
    }
    if (errors.take() != pair.model.takeErrors()) {
      fail("reading field " + std::to_string(id) + " writes something else");
    }
  }

  void comparePrintOut(Pair& pair) {
    const RecordedAssertions assertions;
    CapturedErrors errors;
    std::ostringstream out;
    out << *pair.message;
    const std::string expected = pair.model.print();
    if (out.str() != expected) {
      fail("prints\n" + out.str() + "instead of\n" + expected);
    }
    if (errors.take() != pair.model.takeErrors()) {
      fail("printing writes something else");
    }
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

  static constexpr unsigned kLastUpdate = 7;
  static constexpr unsigned kOwnView = 8;

  ReferenceMessage::Encoding m_encoding;
  Pair m_pairs[2];
  std::string m_log;
  std::string m_failure;
};

class ReferenceModel : public testing::TestWithParam<ReferenceMessage::Encoding> {
 protected:
  ReferenceModel() { loadDictionary(kDictionary); }

  static void runSequences(std::uint32_t firstSeed, std::uint32_t count) {
    for (std::uint32_t seed = firstSeed; seed < firstSeed + count; ++seed) {
      const std::string failure = Sequence(GetParam(), seed).run();
      ASSERT_EQ(failure, "") << "seed " << seed;
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Each, ReferenceModel,
                         testing::Values(ReferenceMessage::kMInt, ReferenceMessage::kIterMap, ReferenceMessage::kMsgT),
                         [](const auto& row) { return "Code" + std::to_string(row.param); });

TEST_P(ReferenceModel, AgreesAfterEveryStep) {
  // The reports of bad fields are used up, on both sides, so that the result does not hang on what ran before.
  Bytes bytes = bytesOf(*MD_Message::createFromPB(GetParam()));
  bytes.insert(bytes.end(), 2000, 0);
  CapturedErrors errors;
  parse(GetParam(), bytes);
  ReferenceMessage(GetParam()).setBinary(bytes);
  runSequences(1, 20000);
}

// Bad fields are reported 101 times a process at most, so that the reports are compared in several processes.
class ReferenceModelDeathTest : public ReferenceModel {
 protected:
  static void runHere() { runSequences(s_firstSeed, kSequences); }

  static constexpr std::uint32_t kSequences = 60;
  static inline std::uint32_t s_firstSeed = 0;
};

INSTANTIATE_TEST_SUITE_P(Each, ReferenceModelDeathTest,
                         testing::Values(ReferenceMessage::kMInt, ReferenceMessage::kIterMap, ReferenceMessage::kMsgT),
                         [](const auto& row) { return "Code" + std::to_string(row.param); });

TEST_P(ReferenceModelDeathTest, AgreesOnTheFirstReportsOfAProcess) {
  for (std::uint32_t process = 0; process < 10; ++process) {
    s_firstSeed = 100000 + process * kSequences;
    expectInFreshProcess(&runHere);
  }
}

/// Whether every view that can be read lies inside the message.
bool hasItsViewsInside(const MD_Message& message) {
  const std::uint8_t* const first = message.getBinary();
  const std::uint8_t* const end = first + message.getSizeImpl();
  for (const std::uint16_t id : kIds) {
    for (const ValueType& type : valueTypes()) {
      std::string raw;
      type.get(message, id, 0, raw);
    }
    MD_Message::Buffer buffer;
    if (message.get(id, buffer) && (buffer.data < first || buffer.data + buffer.length > end)) {
      return false;
    }
    MD_Message::String text;
    const auto bytesOfText = [&] { return reinterpret_cast<const std::uint8_t*>(text.data); };
    if (message.get(id, text) && (bytesOfText() < first || bytesOfText() + text.length > end)) {
      return false;
    }
    std::uint8_t code = 0;
    std::uint32_t size = 0;
    const std::uint8_t* const data = message.fieldData(id, code, size);
    if (data != nullptr && (data < first || data > end)) {
      return false;
    }
  }
  return true;
}

// Changing a message behind a truncated record makes fields overlap. What they hold then is nobody's promise; that
// nothing outside the message is read or written is.
TEST_P(ReferenceModel, StaysInsideItsBytesWhereFieldsOverlap) {
  CapturedErrors errors;
  for (std::uint32_t seed = 1; seed <= 5000; ++seed) {
    SCOPED_TRACE(seed);
    RandomChoices random(seed);
    auto message = MD_Message::createFromPB(GetParam());
    for (int i = 0; i < 5; ++i) {
      const std::uint16_t id = random.someId();
      const ModelValue value = random.someValue(id);
      RandomChoices::withTyped(value, [&](auto typed) { return message->add(id, typed); });
    }
    Bytes bytes = bytesOf(*message);
    bytes.resize(bytes.size() - random.below(static_cast<unsigned>(std::min<std::size_t>(bytes.size(), 12))));
    message = parse(GetParam(), random.oneIn(2) ? bytes : random.someBytes(*message));
    for (int step = 0; step < 12; ++step) {
      const std::uint16_t id = random.someId();
      const ModelValue value = random.someValue(id);
      switch (random.below(6)) {
        case 0:
          RandomChoices::withTyped(value, [&](auto typed) { return message->add(id, typed); });
          break;
        case 1:
          RandomChoices::withTyped(value, [&](auto typed) { return message->update(id, typed); });
          break;
        case 2:
          message->eraseImpl(id);
          break;
        case 3:
          message->eraseArrayImpl(random.someIds(*message));
          break;
        case 4: {
          MD_Message::Buffer view;
          message->get(random.oneIn(2) ? id::kBuffer : id::kBuffer2, view);
          message->update(id::kBuffer, view);
          break;
        }
        default:
          message = message->clone();
      }
      ASSERT_TRUE(hasItsViewsInside(*message));
    }
    const auto received = parse(GetParam(), bytesOf(*message));
    ASSERT_EQ(hexOf(*parse(GetParam(), bytesOf(*received))), hexOf(*received));
    errors.take();
  }
}

}  // namespace
}  // namespace MD::test
