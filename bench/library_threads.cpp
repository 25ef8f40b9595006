// Works that show how threads scale: fresh messages of which several are alive at a time, and messages that one thread
// makes and another one destroys. Each runs in one thread and in two.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

#include "library.h"
#include "md/md_mint.h"

namespace bench {
namespace {

using QuoteBytes = Encoded<Library<MD::mInt>, Quote>;

std::unique_ptr<MD::MD_Message> received(Bytes bytes) {
  return MD::MD_Message::createFromBytes(bytes.data, static_cast<std::uint32_t>(bytes.size));
}

/// `aliveCount` messages are made one after the other, then all are destroyed. An operation is one message.
template <class Message, std::size_t aliveCount>
class Alive {
 public:
  std::size_t count() const noexcept { return messages<Quote>().size() / aliveCount * aliveCount; }
  std::size_t bytesPerOperation() const noexcept { return 0; }

 protected:
  /// Makes message number `i` with `make` in the place that `use` is then called with.
  template <class Make, class Use>
  void replace(std::size_t i, Make make, Use use) {
    const std::size_t place = i % aliveCount;
    if (place == 0) {
      for (Message& message : m_messages) {
        message.reset();
      }
    }
    make(m_messages[place]);
    use(*m_messages[place]);
  }

 private:
  std::array<Message, aliveCount> m_messages;
};

/// Through the own class: each message is made and given two fields.
template <std::size_t aliveCount>
class AddTwo : public Alive<std::optional<MD::mInt>, aliveCount> {
 public:
  AddTwo() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      double bid = 0;
      (*this)(i);
      if (m_last->fieldCount() != 2 || !m_last->get(kBid, bid) || bid != messages<Quote>()[i].bid) {
        failCheck(typeid(*this).name(), "add two", "a message");
      }
    }
  }

  void operator()(std::size_t i) {
    const Quote& values = messages<Quote>()[i];
    this->replace(
        i, [](auto& place) { place.emplace(); },
        [&](MD::mInt& message) {
          bool isGood = message.add(kBid, values.bid);
          isGood &= message.add(kSeq, values.seq);
          benchmark::DoNotOptimize(isGood);
          benchmark::DoNotOptimize(message.getBinary());
          benchmark::ClobberMemory();
          m_last = &message;
        });
  }

 private:
  MD::mInt* m_last = nullptr;
};

/// As the factory makes them: each is made of received bytes, and two fields are read.
template <std::size_t aliveCount>
class ReceiveTwo : public Alive<std::unique_ptr<MD::MD_Message>, aliveCount> {
 public:
  ReceiveTwo() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      (*this)(i);
      Quote actual{};
      if (!LibraryFields<OwnIds, MD::MD_Message>::read(*m_last, actual)) {
        failCheck(typeid(*this).name(), "receive two", "a result");
      }
      expectSame<Quote, FactoryMade<6>>(messages<Quote>()[i], actual, "receive two");
    }
  }

  void operator()(std::size_t i) {
    this->replace(
        i, [&](auto& place) { place = received(m_encoded[i]); },
        [&](MD::MD_Message& message) {
          double bid = 0;
          double ask = 0;
          bool isGood = LibraryFields<OwnIds, MD::MD_Message>::readTwo(message, bid, ask);
          benchmark::DoNotOptimize(isGood);
          benchmark::DoNotOptimize(bid);
          benchmark::DoNotOptimize(ask);
          m_last = &message;
        });
  }

 private:
  const QuoteBytes& m_encoded = QuoteBytes::instance();
  MD::MD_Message* m_last = nullptr;
};

/// A quote is built in one message, and its bytes are parsed into a second one and read; then both are destroyed.
class BuildAndParse {
 public:
  BuildAndParse() {
    for (std::size_t i = 0; i < count(); ++i) {
      run(i, [&](const Quote& actual) {
        expectSame<Quote, Library<MD::mInt>>(messages<Quote>()[i], actual, "build and parse");
      });
    }
  }

  std::size_t count() const noexcept { return messages<Quote>().size(); }
  std::size_t bytesPerOperation() const noexcept { return QuoteBytes::instance().averageBytes(); }

  void operator()(std::size_t i) {
    run(i, [](Quote& out) { benchmark::DoNotOptimize(out); });
  }

 private:
  template <class Use>
  static void run(std::size_t i, Use use) {
    using Fields = LibraryFields<OwnIds, MD::mInt>;
    MD::mInt built;
    MD::mInt parsed;
    Quote out{};
    bool isGood = Fields::add(built, messages<Quote>()[i]);
    isGood &= parsed.setBinaryImpl(built.getBinary(), built.getSizeImpl());
    isGood &= Fields::read(parsed, out);
    benchmark::DoNotOptimize(isGood);
    use(out);
  }
};

// Hand-over -----------------------------------------------------------------------------------------------------------

constexpr std::size_t kTurn = 32;

/// Messages on their way from the one thread that makes them to the one that is done with them, up to kTurn at a time,
/// through a ring that takes no lock.
template <class Message>
class Ring {
 public:
  /// Adds a message; what is added arrives when a turn is full, or by flush().
  void push(Message message) {
    if (m_filling == nullptr) {
      waitUntil([&] { return m_filled - m_emptied.load(std::memory_order_acquire) < m_turns.size(); });
      m_filling = &m_turns[m_filled % m_turns.size()];
      m_filling->count = 0;
    }
    m_filling->messages[m_filling->count] = std::move(message);
    if (++m_filling->count == kTurn) {
      flush();
    }
  }
  void flush() noexcept {
    if (m_filling != nullptr) {
      m_filling = nullptr;
      m_filled.fetch_add(1, std::memory_order_release);
    }
  }

  /// Waits for the next message and removes it.
  Message pop() {
    if (m_emptying == nullptr) {
      waitUntil([&] { return m_emptied != m_filled.load(std::memory_order_acquire); });
      m_emptying = &m_turns[m_emptied % m_turns.size()];
      m_popped = 0;
    }
    Message message = std::move(m_emptying->messages[m_popped]);
    if (++m_popped == m_emptying->count) {
      m_emptying = nullptr;
      m_emptied.fetch_add(1, std::memory_order_release);
    }
    return message;
  }

 private:
  struct alignas(128) Turn {
    std::array<Message, kTurn> messages{};
    std::size_t count = 0;
  };

  template <class Condition>
  static void waitUntil(Condition condition) {
    while (!condition()) {
      std::this_thread::yield();
    }
  }

  alignas(128) std::atomic<std::size_t> m_filled{0};
  Turn* m_filling = nullptr;
  alignas(128) std::atomic<std::size_t> m_emptied{0};
  Turn* m_emptying = nullptr;
  std::size_t m_popped = 0;
  std::array<Turn, 8> m_turns;
};

/// Messages that the factory makes of received bytes; all their fields are read before they are destroyed.
struct FactoryHandOver {
  using Message = std::unique_ptr<MD::MD_Message>;

  static Message make(std::size_t i) { return received(QuoteBytes::instance()[i]); }
  static bool read(const Message& message, Quote& out) {
    return LibraryFields<OwnIds, MD::MD_Message>::read(*message, out);
  }
  static void end(Message) {}
  static void check() {
    for (std::size_t i = 0; i < messages<Quote>().size(); ++i) {
      const Message message = make(i);
      Quote actual{};
      read(message, actual);
      expectSame<Quote, FactoryMade<6>>(messages<Quote>()[i], actual, "hand-over");
    }
  }
};

/// The floor: the same bytes and as many positions in blocks that go round between the two threads, linked as the parts
/// of a message are. No field is decoded, nothing is allocated or locked.
struct BlockHandOver {
  struct alignas(128) Bytes1024 {
    std::uint8_t bytes[1024];
  };
  struct alignas(128) Parts {
    Bytes1024 bytes;
    alignas(128) std::uint64_t positions[kFieldCount<Quote>];
  };
  struct alignas(128) Block {
    std::uint8_t* bytes;
    std::uint64_t* positions;
  };
  using Message = Block*;

  static Message make(std::size_t i) {
    const Bytes source = QuoteBytes::instance()[i];
    Block* const block = s_back.pop();
    std::memcpy(block->bytes, source.data, source.size);
    for (std::size_t field = 0; field < kFieldCount<Quote>; ++field) {
      block->positions[field] = field * 8;
    }
    return block;
  }
  static bool read(Message message, Quote& out) {
    std::uint64_t sum = 0;
    for (std::size_t field = 0; field < kFieldCount<Quote>; ++field) {
      std::uint64_t value = 0;
      std::memcpy(&value, message->bytes + message->positions[field], sizeof value);
      sum += value;
    }
    out.sent = sum;
    return true;
  }
  static void end(Message message) { s_back.push(message); }
  static void check() {
    static std::vector<Block> blocks = [] {
      static std::vector<Parts> parts(kBlocks);
      std::vector<Block> made(kBlocks);
      for (std::size_t i = 0; i < kBlocks; ++i) {
        made[i] = {parts[i].bytes.bytes, parts[i].positions};
      }
      return made;
    }();
    static bool isFilled = false;
    for (std::size_t i = 0; i < kBlocks && !isFilled; ++i) {
      s_back.push(&blocks[i]);
    }
    isFilled = true;
  }

 private:
  static constexpr std::size_t kBlocks = 6 * kTurn;
  static inline Ring<Message> s_back;
};

/// An operation is one half of a message's life: of two threads one does the first halves and the other the second
/// ones, one thread alone does kTurn of each by turns.
template <class Work>
void handOver(benchmark::State& state) {
  static Ring<typename Work::Message> ring;
  const std::size_t count = messages<Quote>().size();
  const bool isAlone = state.threads() == 1;
  const bool isMaker = state.thread_index() == 0;
  if (isMaker) {
    Work::check();
  }
  const auto consume = [] {
    typename Work::Message message = ring.pop();
    Quote out{};
    bool isGood = Work::read(message, out);
    benchmark::DoNotOptimize(isGood);
    benchmark::DoNotOptimize(out);
    Work::end(std::move(message));
  };
  std::size_t made = 0;
  std::size_t consumed = 0;
  for (auto _ : state) {
    if (isAlone ? (made + consumed) / kTurn % 2 == 0 : isMaker) {
      ring.push(Work::make(made++ % count));
      // After the loop the threads wait for each other, so the last messages have to arrive before.
      if (made == static_cast<std::size_t>(state.max_iterations)) {
        ring.flush();
      }
    } else {
      consume();
      ++consumed;
    }
  }
  ring.flush();
  for (; isAlone && consumed != made; ++consumed) {
    consume();
  }
}

template <class Work>
void addHandOver(const std::string& subject) {
  benchmark::RegisterBenchmark(("W6/Q/hand-over/" + subject).c_str(), handOver<Work>)
      ->Setup([](const benchmark::State&) { useDictionary(Dictionary::Small); })
      ->Threads(1)
      ->Threads(2)
      ->UseRealTime();
}

template <class Work>
void addInThreads(const std::string& form, const std::string& subject) {
  addWork<Work, Dictionary::Small>("W6/Q/" + form + "/" + subject, Threads::OneAndTwo);
}

bool registerAll() {
  addInThreads<AddTwo<1>>("1 alive", "mInt");
  addInThreads<AddTwo<2>>("2 alive", "mInt");
  addInThreads<AddTwo<3>>("3 alive", "mInt");
  addInThreads<AddTwo<8>>("8 alive", "mInt");
  addInThreads<AddTwo<64>>("64 alive", "mInt");
  addInThreads<BuildAndParse>("2 alive, build, parse and read", "mInt");
  addInThreads<ReceiveTwo<1>>("1 alive", "mInt from the factory");
  addInThreads<ReceiveTwo<8>>("8 alive", "mInt from the factory");
  addInThreads<ReceiveTwo<64>>("64 alive", "mInt from the factory");
  addHandOver<FactoryHandOver>("mInt from the factory");
  addHandOver<BlockHandOver>("bare blocks");
  return true;
}

const bool kAreRegistered = registerAll();

}  // namespace
}  // namespace bench
