// The floors: the least that the works can cost, and what the machine charges for a lock, a block of memory and plain
// arithmetic.

#include <cstdlib>

#include <algorithm>
#include <mutex>

#include "library.h"
#include "md/md_mint.h"

namespace bench {
namespace {

/// mInt's bytes by hand, with nothing tested and nothing kept but each field's position: static memory, one loop.
struct BareLoop : SubjectDefaults<BareLoop> {
  using Encoder = Library<MD::mInt>;
  static constexpr Dictionary kDictionary = Dictionary::Small;
  static constexpr Coverage kCoverage{"Q", false, true, true, true, true, true, false};
  static constexpr std::size_t kIds = 512;

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    void clear() {
      if constexpr (kIsSparse<Values>) {
        s_positions.fill(0);
      }
    }
    Bytes build(const Values& values);
    bool parse(Bytes bytes);
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      load(value(kBid), bid);
      load(value(kAsk), ask);
      return true;
    }
    Bytes update(const Values& values) {
      store(value(kBid), values.bid);
      store(value(kAsk), values.ask);
      store(value(kVolume), values.volume);
      store(value(kSeq), values.seq);
      return {s_bytes.data(), m_size};
    }

   private:
    template <class T>
    static void load(const std::uint8_t* from, T& out) noexcept {
      std::memcpy(&out, from, sizeof out);
    }
    template <class T>
    static std::uint8_t* store(std::uint8_t* to, T value) noexcept {
      std::memcpy(to, &value, sizeof value);
      return to + sizeof value;
    }
    static std::uint8_t* value(std::uint16_t id) noexcept { return s_bytes.data() + s_positions[id] + 3; }

    template <class Kind>
    static std::uint8_t* putValue(std::uint8_t* to, const typename Kind::Type& value) noexcept {
      if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        if (value < 0 || value > 32'767) {
          return store(to, value);
        }
        return value > 127 ? store(to, static_cast<std::int16_t>(value)) : store(to, static_cast<std::int8_t>(value));
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        std::memcpy(to, value.data(), value.size());
        to += value.size();
        return std::is_same_v<Kind, kind::Buffer> ? to : store(to, '\0');
      } else {
        return store(to, value);
      }
    }
    template <class Kind, class T>
    static std::uint8_t* put(std::uint8_t* to, std::uint16_t id, const T& value) noexcept {
      if (!isPresent(value)) {
        return to;
      }
      s_positions[id] = static_cast<std::uint16_t>(to - s_bytes.data());
      store(to, id);
      std::uint8_t* end = putValue<Kind>(to + 3, valueOf(value));
      to[2] = static_cast<std::uint8_t>(end - to - 3);
      return end;
    }

    template <class Kind>
    static typename Kind::Type getValue(const std::uint8_t* record) noexcept {
      typename Kind::Type result;
      if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        if (record[2] == 1) {
          result = record[3];
        } else if (record[2] == 2) {
          std::int16_t half;
          load(record + 3, half);
          result = half;
        } else {
          load(record + 3, result);
        }
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        const std::size_t length = std::is_same_v<Kind, kind::Buffer> ? record[2] : record[2] - std::size_t{1};
        result = {reinterpret_cast<const char*>(record + 3), length};
      } else {
        load(record + 3, result);
      }
      return result;
    }
    template <class Kind, class T>
    static void get(std::uint16_t id, T& out) noexcept {
      if constexpr (kIsSparse<Values>) {
        if (s_positions[id] == 0) {
          return;
        }
      }
      out = getValue<Kind>(s_bytes.data() + s_positions[id]);
    }

    static inline std::array<std::uint8_t, 16384> s_bytes{};
    static inline std::array<std::uint16_t, kIds> s_positions{};
    std::size_t m_size = 0;
  };
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) to = put<kind::Kind>(to, id, values.name);
#define MD_BENCH_GET(name, Name, Kind, id, number) get<kind::Kind>(id, out.name);
template <class Values>
Bytes BareLoop::Message<Values>::build(const Values& values) {
  std::uint8_t* to = s_bytes.data();
  *to++ = 6;
  if constexpr (std::is_same_v<Values, Quote>) {
    MD_BENCH_QUOTE_FIELDS(MD_BENCH_PUT)
  } else if constexpr (std::is_same_v<Values, Wide>) {
    MD_BENCH_WIDE_FIELDS(MD_BENCH_PUT)
  } else {
    MD_BENCH_TICK_FIELDS(MD_BENCH_PUT)
  }
  m_size = static_cast<std::size_t>(to - s_bytes.data());
  return {s_bytes.data(), m_size};
}

template <class Values>
bool BareLoop::Message<Values>::parse(Bytes bytes) {
  clear();
  std::memcpy(s_bytes.data(), bytes.data, bytes.size);
  m_size = bytes.size;
  for (std::size_t position = 1; position < bytes.size;) {
    std::uint16_t id;
    load(s_bytes.data() + position, id);
    s_positions[id] = static_cast<std::uint16_t>(position);
    position += std::size_t{3} + s_bytes[position + 2];
  }
  return true;
}

template <class Values>
bool BareLoop::Message<Values>::read(Values& out) const {
  if constexpr (std::is_same_v<Values, Quote>) {
    MD_BENCH_QUOTE_FIELDS(MD_BENCH_GET)
  } else if constexpr (std::is_same_v<Values, Wide>) {
    MD_BENCH_WIDE_FIELDS(MD_BENCH_GET)
  } else {
    MD_BENCH_TICK_FIELDS(MD_BENCH_GET)
  }
  return true;
}
#undef MD_BENCH_PUT
#undef MD_BENCH_GET

/// A work without messages.
class Machine {
 public:
  std::size_t count() const noexcept { return 1; }
  std::size_t bytesPerOperation() const noexcept { return 0; }
};

class Lock : public Machine {
 public:
  void operator()(std::size_t) {
    m_mutex.lock();
    benchmark::ClobberMemory();
    m_mutex.unlock();
  }

 private:
  std::mutex m_mutex;
};

class Block : public Machine {
 public:
  void operator()(std::size_t) {
    void* block = std::malloc(1024);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
};

/// The control of the works in two threads: nothing but registers, so that two threads do twice the work of one
/// unless the machine is busy with something else.
class Arithmetic : public Machine {
 public:
  void operator()(std::size_t) {
    for (int step = 0; step < 64; ++step) {
      m_state ^= m_state << 13;
      m_state ^= m_state >> 7;
      m_state ^= m_state << 17;
    }
    benchmark::DoNotOptimize(m_state);
  }

 private:
  std::uint64_t m_state = 88'172'645'463'325'252U;
};

bool registerMachine() {
  addWork<Lock, Dictionary::Any>("floor/-/-/mutex lock and unlock");
  addWork<Block, Dictionary::Any>("floor/-/-/malloc and free of 1 KiB");
  addWork<Arithmetic, Dictionary::Any>("W6/-/-/arithmetic", Threads::OneAndTwo);
  return true;
}

const bool kAreRegistered = registerSubject<BareLoop>("bare loop") && registerMachine();

}  // namespace
}  // namespace bench
