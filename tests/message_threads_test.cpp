// Messages belong to one thread at a time; any number of threads may have messages of their own, and hand them on.
#include <cstdint>
#include <cstdio>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_report.h"
#include "support/captured_errors.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/encodings.h"
#include "support/fresh_process.h"
#include "support/messages.h"
#include "support/threads.h"

namespace MD::test {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 500;

void fill(MD_Message& message, int value) {
  message.add(id::kInt, value + 70000);
  message.add(id::kString, "text " + std::to_string(value));
  message.add(id::kDouble, value * 0.25);
  message.add(id::kBuffer, bufferOf(std::string(static_cast<std::size_t>(value % 200), 'x')));
}

/// Whether the message holds what fill() gave it, and nothing else.
bool holds(const MD_Message& message, int value) {
  std::int32_t number = 0;
  std::string text;
  double price = 0;
  MD_Message::Buffer buffer;
  return message.fieldCount() == 4 && message.get(id::kInt, number) && number == value + 70000 &&
         message.get(id::kString, text) && text == "text " + std::to_string(value) && message.get(id::kDouble, price) &&
         price == value * 0.25 && message.get(id::kBuffer, buffer) && buffer.length == value % 200;
}

MD_Message::Allocator newPools() {
  return {std::make_shared<ReusableContainer<MsgData>>(), std::make_shared<ReusableContainer<Optimizer>>()};
}

/// Messages on their way from one thread to another.
class Queue {
 public:
  void push(std::unique_ptr<MD_Message> message) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_messages.push_back(std::move(message));
    m_changed.notify_one();
  }
  std::unique_ptr<MD_Message> pop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return !m_messages.empty(); });
    auto message = std::move(m_messages.front());
    m_messages.pop_front();
    return message;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::deque<std::unique_ptr<MD_Message>> m_messages;
};

class MessageThreads : public testing::TestWithParam<Encoding> {
 protected:
  MessageThreads() { loadDictionary(kDictionary); }

  static std::unique_ptr<MD_Message> make() { return MD_Message::createFromPB(GetParam().code); }

  std::atomic<int> m_wrong{0};
};

INSTANTIATE_TEST_SUITE_P(Each, MessageThreads, eachEncoding(), nameOfEncoding);

TEST_P(MessageThreads, CreateFillParseAndDestroy) {
  inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      const int value = thread * kRounds + round;
      const auto message = make();
      fill(*message, value);
      const auto received = parse(GetParam().code, bytesOf(*message));
      message->clearImpl();
      fill(*message, value + 1);
      m_wrong += !holds(*received, value) + !holds(*message, value + 1);
    }
  });
  EXPECT_EQ(m_wrong, 0);
}

TEST_P(MessageThreads, HandMessagesOn) {
  Queue queues[kThreads];
  inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      auto message = make();
      fill(*message, round);
      queues[(thread + 1) % kThreads].push(std::move(message));
      const auto received = queues[thread].pop();
      m_wrong += !holds(*received, round);
      received->update(id::kInt, 5);
    }
  });
  EXPECT_EQ(m_wrong, 0);
}

TEST_P(MessageThreads, ShareAPoolOfTheirOwn) {
  const auto pools = newPools();
  const auto original = make();
  fill(*original, 77);
  const Bytes bytes = bytesOf(*original);
  Queue queues[kThreads];
  inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      queues[(thread + 1) % kThreads].push(
          MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools));
      const auto received = queues[thread].pop();
      const auto copy = received->clone();
      const auto moved = received->moveToNew();
      received->clearImpl();
      m_wrong += !holds(*copy, 77) + !holds(*moved, 77) + !received->emptyImpl();
    }
  });
  EXPECT_EQ(m_wrong, 0);
}

TEST_P(MessageThreads, SwapMessagesOfDifferentPools) {
  const MD_Message::Allocator pools[kThreads] = {newPools(), newPools(), newPools(), {}};
  const auto original = make();
  fill(*original, 77);
  const Bytes bytes = bytesOf(*original);
  Queue queues[kThreads];
  inThreads(kThreads, [&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      auto mine = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools[thread]);
      mine->update(id::kInt, 70000 + thread);
      queues[(thread + 1) % kThreads].push(std::move(mine));
      const auto received = queues[thread].pop();
      auto other = MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()), pools[thread]);
      other->swap(*received);
      std::int32_t number = 0;
      m_wrong += !other->get(id::kInt, number) || number != 70000 + (thread + kThreads - 1) % kThreads;
      m_wrong += !holds(*received, 77);
    }
  });
  EXPECT_EQ(m_wrong, 0);
}

TEST_P(MessageThreads, OutliveTheThreadThatMadeThem) {
  std::vector<std::unique_ptr<MD_Message>> messages(kThreads);
  inThreads(kThreads, [&](int thread) {
    auto message = make();
    fill(*message, thread);
    messages[static_cast<std::size_t>(thread)] = std::move(message);
  });
  for (int thread = 0; thread < kThreads; ++thread) {
    EXPECT_TRUE(holds(*messages[static_cast<std::size_t>(thread)], thread));
  }
  inThreads(kThreads, [&](int thread) { messages[static_cast<std::size_t>(thread)].reset(); });
}

// Reports of several threads never interleave, and no more than 101 are written of bad fields.
TEST_P(MessageThreads, ReportWholeLines) {
  CapturedErrors errors;
  inThreads(kThreads, [&](int) {
    for (int round = 0; round < 50; ++round) {
      const auto message = make();
      message->add(id::kUnknown, 'x');
    }
  });
  const std::string line =
      GetParam().code == ENCODINGS::MINT      ? "mInt Error: Attempting to ADD a field with incorrect id!"
      : GetParam().code == ENCODINGS::ITERMAP ? "IterMap Error: Attempting to ADD a field with incorrect id or type"
                                              : "MsgT Error: Attempting to ADD a field with incorrect id or type!";
  std::string expected;
  for (int i = 0; i < kThreads * 50; ++i) {
    expected += report(line, id::kUnknown, 1, 1);
  }
  EXPECT_EQ(errors.take(), expected);
}

TEST_P(MessageThreads, ReportToAHandlerFromWhereverTheyAre) {
  static std::atomic<int> reports;
  reports = 0;
  const ReportHandler previous = set_report_handler([](const char*, std::size_t) { ++reports; });
  inThreads(kThreads, [&](int) {
    for (int round = 0; round < 50; ++round) {
      make()->add(id::kUnknown, 'x');
    }
  });
  set_report_handler(previous);
  EXPECT_EQ(reports, kThreads * 50);
}

/// Expects `text` to be bad-field reports and dumps of what was left, whole ones in any order.
/// @return the number of reports
int countReports(const std::string& text) {
  const std::string bad = badField(id::kUnknown, 0, 0);
  const std::string left = remainder("CH                     = A\n");
  int reports = 0;
  for (std::size_t at = 0; at < text.size();) {
    const bool isReport = text.compare(at, bad.size(), bad) == 0;
    if (!isReport && text.compare(at, left.size(), left) != 0) {
      ADD_FAILURE() << "torn: " << text.substr(at, 300);
      return reports;
    }
    reports += isReport ? 1 : 0;
    at += isReport ? bad.size() : left.size();
  }
  return reports;
}

/// A message of one known and one unknown field.
Bytes withABadField(std::uint8_t code) {
  const auto message = MD_Message::createFromPB(code);
  message->add(id::kChar, 'A');
  Bytes bytes = bytesOf(*message);
  const Bytes unknown = unknownRecord(code);
  bytes.insert(bytes.end(), unknown.begin(), unknown.end());
  return bytes;
}

void parseOnEveryThread(const std::vector<std::uint8_t>& codes) {
  std::atomic<int> wrong{0};
  std::vector<Bytes> received;
  for (const std::uint8_t code : codes) {
    received.push_back(withABadField(code));
  }
  inThreads(kThreads, [&](int) {
    for (int round = 0; round < 100; ++round) {
      for (std::size_t i = 0; i < codes.size(); ++i) {
        wrong += parse(codes[i], received[i])->fieldCount() != 1;
      }
    }
  });
  EXPECT_EQ(wrong, 0);
}

// The counter belongs to the process, so this takes one of its own.
class BadFieldThreadsDeathTest : public MessageThreads {
 protected:
  static void countReportsOfOneEncoding() {
    loadDictionary(kDictionary);
    CapturedErrors errors;
    parseOnEveryThread({GetParam().code});
    EXPECT_EQ(countReports(errors.take()), 101);
  }
};

TEST_P(BadFieldThreadsDeathTest, CountReportsTogether) { expectInFreshProcess(&countReportsOfOneEncoding); }

// On the process's own standard error, as a file, with reports of all encodings.
TEST(BadFieldsOfAllEncodingsDeathTest, AreReportedInWholeLinesAndCountedApart) {
  expectInFreshProcess([] {
    loadDictionary(kDictionary);
    const ConfigurationFolder folder;
    ASSERT_NE(std::freopen("errors", "wb", stderr), nullptr);
    parseOnEveryThread({ENCODINGS::MINT, ENCODINGS::ITERMAP, ENCODINGS::MSGT});
    std::fflush(stderr);
    std::ostringstream text;
    text << std::ifstream("errors", std::ios::binary).rdbuf();
    EXPECT_EQ(countReports(text.str()), 3 * 101);
  });
}

INSTANTIATE_TEST_SUITE_P(Each, BadFieldThreadsDeathTest, eachEncoding(), nameOfEncoding);

}  // namespace
}  // namespace MD::test
