// The works, each written once for every subject.
//
// A subject is one way to carry a message: this library, a peer, a floor. It is a structure derived from
// SubjectDefaults with two member templates:
//
//   Context<Values>    what outlives messages: output buffers, factories, descriptors
//   Message<Values>    one message, made from a Context&; in the form "fresh" it is made and destroyed in each
//   operation,
//                      in the form "reused" it lives throughout. Its members:
//     void clear()                      empties it before another build()
//     Bytes build(const Values&)        fills an empty message and returns its serialised bytes
//     bool parse(Bytes)                 takes received bytes
//     bool read(Values& out)            reads every field
//     bool readTwo(double&, double&)    reads bid and ask (quotes only)
//     Bytes update(const Values&)       replaces bid, ask, volume and seq and returns the bytes (quotes only)
//
// One source per subject registers it: `const bool kIsRegistered = registerSubject<Protobuf>("protobuf");`. Before a
// work's clock starts its answers are compared with the source values; a difference ends the program.
#ifndef MD_BENCH_WORKS_H
#define MD_BENCH_WORKS_H

#include <cstdint>
#include <cstring>

#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <benchmark/benchmark.h>

#include "dictionary.h"
#include "messages.h"
#include "run_work.h"

namespace bench {

struct Bytes {
  const std::uint8_t* data;
  std::size_t size;
};

enum class Form { Fresh, Reused };

/// What of the works a subject takes part in.
struct Coverage {
  const char* quoteLabel = "Q";
  bool fresh = true;
  bool reused = true;
  bool build = true;
  bool update = true;
  bool wide = true;
  bool ticks = true;
  bool threads = false;
};

template <class Self>
struct SubjectDefaults {
  /// The implementation whose build() makes the bytes that this one parses; if it returns bytes they must be equal.
  using Encoder = Self;
  static constexpr Dictionary kDictionary = Dictionary::Any;
  static constexpr bool kReadsDateTimes = true;
  static constexpr bool kHandsOutBytes = true;
  static constexpr Coverage kCoverage{};

  template <class Values>
  struct Context {};
};

template <class Values, class Subject>
void expectSame(const Values& expected, const Values& actual, const char* work) {
  if (const char* field = firstDifference(expected, actual, Subject::kReadsDateTimes)) {
    failCheck(typeid(Subject).name(), work, field);
  }
}

/// The serialised messages that a subject parses, each at an address that suits every reader.
template <class Subject, class Values>
class Encoded {
 public:
  static const Encoded& instance() {
    static const Encoded encoded;
    return encoded;
  }

  Bytes operator[](std::size_t i) const noexcept {
    return {reinterpret_cast<const std::uint8_t*>(m_words.data() + m_starts[i]), m_sizes[i]};
  }
  std::size_t averageBytes() const noexcept { return m_totalBytes / m_sizes.size(); }

 private:
  Encoded() {
    typename Subject::template Context<Values> context;
    for (const Values& values : messages<Values>()) {
      typename Subject::template Message<Values> message(context);
      const Bytes bytes = message.build(values);
      m_starts.push_back(m_words.size());
      m_sizes.push_back(bytes.size);
      m_totalBytes += bytes.size;
      m_words.resize(m_words.size() + (bytes.size + 7) / 8);
      std::memcpy(m_words.data() + m_starts.back(), bytes.data, bytes.size);
    }
  }

  std::vector<std::uint64_t> m_words;
  std::vector<std::size_t> m_starts;
  std::vector<std::size_t> m_sizes;
  std::size_t m_totalBytes = 0;
};

/// What the works have in common: the input, and the live message of the form "reused".
template <class Subject, class Values, Form form>
class Work {
 public:
  using Message = typename Subject::template Message<Values>;

  std::size_t count() const noexcept { return m_values.size(); }
  std::size_t bytesPerOperation() const noexcept { return m_encoded.averageBytes(); }

 protected:
  Work() {
    if constexpr (form == Form::Reused) {
      m_live.emplace(m_context);
    }
  }

  /// Calls `use` with an empty message.
  template <class Use>
  void withEmptied(Use use) {
    if constexpr (form == Form::Reused) {
      m_live->clear();
      use(*m_live);
    } else {
      Message message(m_context);
      use(message);
    }
  }
  /// Calls `use` with a message that parse() will fill.
  template <class Use>
  void withAny(Use use) {
    if constexpr (form == Form::Reused) {
      use(*m_live);
    } else {
      Message message(m_context);
      use(message);
    }
  }

  /// The serialised bytes are in memory, ready to be sent.
  static void take(Bytes bytes) {
    benchmark::DoNotOptimize(bytes.data);
    benchmark::DoNotOptimize(bytes.size);
    benchmark::ClobberMemory();
  }
  static void reset(Values& out) {
    if constexpr (kIsSparse<Values>) {
      out = Values{};
    }
  }
  /// Compares what bytes of the subject hold with what they should.
  void expectBytes(Bytes bytes, const Values& expected, const char* work) {
    if constexpr (Subject::kHandsOutBytes) {
      // As a receiver would have them, at an address that suits every reader.
      std::vector<std::uint64_t> copy((bytes.size + 7) / 8);
      std::memcpy(copy.data(), bytes.data, bytes.size);
      typename Subject::template Context<Values> context;
      Message received(context);
      Values actual{};
      if (!received.parse({reinterpret_cast<const std::uint8_t*>(copy.data()), bytes.size}) || !received.read(actual)) {
        failCheck(typeid(Subject).name(), work, "the bytes");
      }
      expectSame<Values, Subject>(expected, actual, work);
    }
  }

  const std::vector<Values>& m_values = messages<Values>();
  const Encoded<typename Subject::Encoder, Values>& m_encoded = Encoded<typename Subject::Encoder, Values>::instance();
  typename Subject::template Context<Values> m_context;
  std::optional<Message> m_live;
};

/// Builds a message and takes its bytes.
template <class Subject, class Values, Form form>
class Build : public Work<Subject, Values, form> {
 public:
  Build() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      const Values& values = this->m_values[i];
      this->withEmptied([&](auto& message) {
        const Bytes bytes = message.build(values);
        const Bytes sameBytes = this->m_encoded[i];
        if (Subject::kHandsOutBytes && !std::is_same_v<typename Subject::Encoder, Subject> &&
            (bytes.size != sameBytes.size || std::memcmp(bytes.data, sameBytes.data, bytes.size) != 0)) {
          failCheck(typeid(Subject).name(), "build", "a message");
        }
        this->expectBytes(bytes, values, "build");
        if constexpr (!Subject::kHandsOutBytes) {
          Values actual{};
          message.read(actual);
          expectSame<Values, Subject>(values, actual, "build");
        }
      });
    }
  }

  void operator()(std::size_t i) {
    this->withEmptied([&](auto& message) { this->take(message.build(this->m_values[i])); });
  }
};

/// Parses a message and reads all its fields.
template <class Subject, class Values, Form form>
class ReadAll : public Work<Subject, Values, form> {
 public:
  ReadAll() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      this->withAny([&](auto& message) {
        Values actual{};
        if (!message.parse(this->m_encoded[i]) || !message.read(actual)) {
          failCheck(typeid(Subject).name(), "read all", "a result");
        }
        expectSame<Values, Subject>(this->m_values[i], actual, "read all");
      });
    }
  }

  void operator()(std::size_t i) {
    this->withAny([&](auto& message) {
      this->reset(m_out);
      bool isGood = message.parse(this->m_encoded[i]);
      isGood &= message.read(m_out);
      benchmark::DoNotOptimize(isGood);
      benchmark::DoNotOptimize(m_out);
    });
  }

 private:
  Values m_out{};
};

/// Parses a quote and reads two of its fields.
template <class Subject, Form form>
class ReadTwo : public Work<Subject, Quote, form> {
 public:
  ReadTwo() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      this->withAny([&](auto& message) {
        Quote actual = this->m_values[i];
        actual.bid = actual.ask = 0;
        if (!message.parse(this->m_encoded[i]) || !message.readTwo(actual.bid, actual.ask)) {
          failCheck(typeid(Subject).name(), "read two", "a result");
        }
        expectSame<Quote, Subject>(this->m_values[i], actual, "read two");
      });
    }
  }

  void operator()(std::size_t i) {
    this->withAny([&](auto& message) {
      double bid = 0;
      double ask = 0;
      bool isGood = message.parse(this->m_encoded[i]);
      isGood &= message.readTwo(bid, ask);
      benchmark::DoNotOptimize(isGood);
      benchmark::DoNotOptimize(bid);
      benchmark::DoNotOptimize(ask);
    });
  }
};

/// Replaces four numbers of a live quote and takes its bytes.
template <class Subject>
class Update : public Work<Subject, Quote, Form::Reused> {
 public:
  Update() {
    Quote expected = this->m_values[0];
    this->m_live->clear();
    this->m_live->build(expected);
    for (const Quote& values : this->m_values) {
      expected.bid = values.bid;
      expected.ask = values.ask;
      expected.volume = values.volume;
      expected.seq = values.seq;
      this->expectBytes(this->m_live->update(values), expected, "update");
    }
  }

  void operator()(std::size_t i) { this->take(this->m_live->update(this->m_values[i])); }
};

/// Builds a quote, and parses its bytes and reads all of them as a receiver would.
template <class Subject, Form form>
class BuildAndRead {
 public:
  std::size_t count() const noexcept { return m_build.count(); }
  std::size_t bytesPerOperation() const noexcept { return m_build.bytesPerOperation(); }

  void operator()(std::size_t i) {
    m_build(i);
    m_read(i);
  }

 private:
  Build<Subject, Quote, form> m_build;
  ReadAll<Subject, Quote, form> m_read;
};

template <class Subject, Form form>
void registerForm(const std::string& name) {
  constexpr Coverage kCovered = Subject::kCoverage;
  const std::string formName = form == Form::Fresh ? "/fresh/" : "/reused/";
  const std::string quote = std::string("/") + kCovered.quoteLabel + formName + name;
  if constexpr (kCovered.build) {
    addWork<Build<Subject, Quote, form>, Subject::kDictionary>("W1" + quote);
  }
  addWork<ReadAll<Subject, Quote, form>, Subject::kDictionary>("W2" + quote);
  addWork<ReadTwo<Subject, form>, Subject::kDictionary>("W3" + quote);
  if constexpr (kCovered.wide) {
    addWork<ReadAll<Subject, Wide, form>, Subject::kDictionary>("W5/B" + formName + name);
  }
  if constexpr (kCovered.ticks) {
    if (whyNoTicks() == nullptr) {
      if constexpr (kCovered.build) {
        addWork<Build<Subject, Tick, form>, Subject::kDictionary>("W1/R" + formName + name);
      }
      addWork<ReadAll<Subject, Tick, form>, Subject::kDictionary>("W2/R" + formName + name);
    }
  }
  if constexpr (kCovered.threads) {
    addWork<BuildAndRead<Subject, form>, Subject::kDictionary>("W6" + quote, Threads::OneAndTwo);
  }
}

/// Registers every work that the subject takes part in. @return true
template <class Subject>
bool registerSubject(const std::string& name) {
  if constexpr (Subject::kCoverage.fresh) {
    registerForm<Subject, Form::Fresh>(name);
  }
  if constexpr (Subject::kCoverage.reused) {
    registerForm<Subject, Form::Reused>(name);
  }
  if constexpr (Subject::kCoverage.update) {
    addWork<Update<Subject>, Subject::kDictionary>(std::string("W4/") + Subject::kCoverage.quoteLabel + "/reused/" +
                                                   name);
  }
  return true;
}

}  // namespace bench

#endif
