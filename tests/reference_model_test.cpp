// The same random operations on a message and on a model of it, compared after each step. Deterministic: a failure
// names the seed of its sequence.
#include <cstdint>
#include <cstdlib>

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_process.h"
#include "support/message_sequence.h"
#include "support/messages.h"
#include "support/random_choices.h"
#include "support/reference_model.h"

namespace MD::test {
namespace {

/// How many random sequences run: 20,000, or MD_TEST_SEQUENCES where that many take too long, under an emulator for
/// instance.
std::uint32_t sequenceCount() {
  const char* const text = std::getenv("MD_TEST_SEQUENCES");
  return text == nullptr ? 20000 : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

/// @return what went wrong, empty when nothing did
std::string runSequence(ReferenceMessage::Encoding encoding, std::uint32_t seed) {
  RandomChoices choices(seed);
  MessageSequence sequence(encoding, choices);
  for (unsigned steps = 10 + choices.below(21); steps > 0 && sequence.runStep(); --steps) {
  }
  return sequence.finish();
}

class ReferenceModel : public testing::TestWithParam<ReferenceMessage::Encoding> {
 protected:
  ReferenceModel() { loadDictionary(kDictionary); }

  static void runSequences(std::uint32_t firstSeed, std::uint32_t count) {
    for (std::uint32_t seed = firstSeed; seed < firstSeed + count; ++seed) {
      const std::string failure = runSequence(GetParam(), seed);
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
  ASSERT_GE(sequenceCount(), 100U);
  runSequences(1, sequenceCount());
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

/// Whether every view that can be read is inside the message.
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

// Changing a message after a truncated record makes fields overlap.
TEST_P(ReferenceModel, StaysInsideItsBytesWhereFieldsOverlap) {
  CapturedErrors errors;
  for (std::uint32_t seed = 1; seed <= sequenceCount() / 4; ++seed) {
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
          static_cast<void>(message->get(random.oneIn(2) ? id::kBuffer : id::kBuffer2, view));
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
