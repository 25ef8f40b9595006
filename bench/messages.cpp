#include "messages.h"

#include <cstdlib>

#include <charconv>
#include <deque>
#include <fstream>
#include <random>
#include <string>
#include <type_traits>

#include "md/md_datetime.h"
#include "test_data.h"

namespace bench {
namespace {

constexpr std::size_t kDifferentMessages = 64;

/// Keeps the texts that the messages' views point to.
std::string_view keep(std::string text) {
  static std::deque<std::string> texts;
  return texts.emplace_back(std::move(text));
}

/// Synthetic values that resemble market data.
class Maker {
 public:
  explicit Maker(unsigned seed) : m_random(seed) {}

  template <class Int>
  Int between(Int low, Int high) {
    return std::uniform_int_distribution<Int>(low, high)(m_random);
  }
  std::int32_t int32(std::int32_t low, std::int32_t high) { return between(low, high); }
  /// Prices have two decimals.
  std::int32_t cents() { return int32(100, 9'000'000); }
  static double price(std::int32_t cents) { return cents / 100.0; }
  std::string_view text(std::size_t length) {
    std::string text;
    while (text.size() < length) {
      text.push_back(static_cast<char>('A' + int32(0, 25)));
    }
    return keep(std::move(text));
  }
  char letter() { return static_cast<char>('A' + int32(0, 25)); }
  std::uint64_t epochNs() { return 1'723'161'590'001'409'636U + between<std::uint64_t>(0, 60'000'000'000U); }
  std::uint64_t dateTime() {
    const MD::MD_DateTime value(20240800 + int32(1, 28), int32(0, 86'399'999), static_cast<short>(int32(-300, 60)));
    char bytes[8];
    MD::MD_DateTime::serialize(bytes, value);
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
  }

 private:
  std::mt19937_64 m_random;
};

Quote makeQuote(Maker& make) {
  Quote quote{};
  quote.symbol = make.text(8);
  quote.venue = make.text(12);
  quote.condition = make.letter();
  quote.seq = make.between<std::int64_t>(1'000'000'000'000, 9'000'000'000'000);
  const std::int32_t bid = make.cents();
  quote.bid = make.price(bid);
  quote.bidsize = make.int32(1, 127);
  quote.ask = make.price(bid + make.int32(1, 50));
  quote.asksize = make.int32(128, 32'767);
  quote.last = make.price(make.cents());
  quote.lastsize = make.int32(1, 1'000);
  quote.open = make.price(make.cents());
  quote.volume = make.int32(1'000'000, 2'000'000'000);
  quote.trades = make.int32(10'000, 90'000);
  quote.change = make.int32(-5'000, -1);
  quote.sent = make.epochNs();
  quote.session = make.dateTime();
  return quote;
}

/// A value of a kind; integers of all magnitudes.
template <class Kind>
typename Kind::Type makeValue(Maker& make) {
  if constexpr (std::is_same_v<Kind, kind::Char>) {
    return make.letter();
  } else if constexpr (std::is_same_v<Kind, kind::Int>) {
    const std::int32_t highest[] = {127, 32'767, 2'000'000'000};
    return make.int32(1, highest[make.int32(0, 2)]);
  } else if constexpr (std::is_same_v<Kind, kind::SInt>) {
    return make.int32(-5'000, -1);
  } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
    return make.between<std::int64_t>(1, 9'000'000'000'000);
  } else if constexpr (std::is_same_v<Kind, kind::Float>) {
    return static_cast<float>(make.int32(1, 1'000'000)) / 64.0F;
  } else if constexpr (std::is_same_v<Kind, kind::Double>) {
    return make.price(make.cents());
  } else if constexpr (std::is_same_v<Kind, kind::String>) {
    return make.text(static_cast<std::size_t>(make.int32(4, 20)));
  } else if constexpr (std::is_same_v<Kind, kind::Buffer>) {
    return make.text(16);
  } else if constexpr (std::is_same_v<Kind, kind::DateTime>) {
    return make.dateTime();
  } else {
    return make.epochNs();
  }
}

Wide makeWide(Maker& make) {
  Wide wide{};
#define MD_BENCH_MAKE(name, Name, Kind, id, number) wide.name = makeValue<kind::Kind>(make);
  MD_BENCH_WIDE_FIELDS(MD_BENCH_MAKE)
#undef MD_BENCH_MAKE
  return wide;
}

/// The next cell of a line, whose text stays alive.
std::string_view nextCell(std::string_view& line) {
  const std::size_t comma = line.find(',');
  const std::string_view cell = line.substr(0, comma);
  line.remove_prefix(comma == std::string_view::npos ? line.size() : comma + 1);
  return cell;
}

template <class T>
void takeCell(std::string_view cell, std::optional<T>& out) {
  if (cell.empty()) {
    return;
  }
  if constexpr (std::is_same_v<T, std::string_view>) {
    out = cell;
  } else if constexpr (std::is_same_v<T, char>) {
    out = cell[0];
  } else {
    T value{};
    std::from_chars(cell.data(), cell.data() + cell.size(), value);
    out = value;
  }
}

std::vector<Tick> readTicks() {
  std::vector<Tick> ticks;
  std::ifstream file(testDataPath("ticks_small.csv"));
  std::string line;
  std::getline(file, line);  // the header; its columns are Tick's members in their order
  while (std::getline(file, line)) {
    std::string_view rest = keep(std::move(line));
    Tick& tick = ticks.emplace_back();
#define MD_BENCH_CELL(name, Name, Kind, id, number) takeCell(nextCell(rest), tick.name);
    MD_BENCH_TICK_FIELDS(MD_BENCH_CELL)
#undef MD_BENCH_CELL
  }
  return ticks;
}

template <class Make>
auto makeMany(unsigned seed, Make make) {
  Maker maker(seed);
  std::vector<decltype(make(maker))> made;
  while (made.size() < kDifferentMessages) {
    made.push_back(make(maker));
  }
  return made;
}

}  // namespace

template <>
const std::vector<Quote>& messages<Quote>() {
  static const std::vector<Quote> quotes = makeMany(16, makeQuote);
  return quotes;
}

template <>
const std::vector<Wide>& messages<Wide>() {
  static const std::vector<Wide> wides = makeMany(200, makeWide);
  return wides;
}

template <>
const std::vector<Tick>& messages<Tick>() {
  static const std::vector<Tick> ticks = readTicks();
  return ticks;
}

const char* whyNoTicks() {
  return messages<Tick>().empty() ? "R left out: MD_TEST_DATA names no folder that holds ticks_small.csv" : nullptr;
}

#define MD_BENCH_COMPARE(name, Name, Kind, id, number)                                       \
  if ((withDateTimes || !std::is_same_v<kind::Kind, kind::DateTime>)&&!(a.name == b.name)) { \
    return #name;                                                                            \
  }
#define MD_BENCH_DIFFERENCE(Values, FIELDS)                                           \
  template <>                                                                         \
  const char* firstDifference(const Values& a, const Values& b, bool withDateTimes) { \
    FIELDS(MD_BENCH_COMPARE)                                                          \
    return nullptr;                                                                   \
  }
MD_BENCH_MESSAGES(MD_BENCH_DIFFERENCE)

}  // namespace bench
