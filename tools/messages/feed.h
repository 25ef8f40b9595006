// A synthetic feed: quotes that follow a random walk and trades at their prices, the same on every platform.
#ifndef MDMSG_FEED_H
#define MDMSG_FEED_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "md/md_message.h"

namespace MD::tool {

struct FeedOptions {
  std::uint64_t seed = 1;
  std::uint64_t messages = 1000;
  std::vector<std::string> encodings{"mInt", "IterMap", "MsgT"};  ///< by name; drawn for each message
  std::vector<std::string> symbols{"NEB/USD", "ORI/USD", "LYR/EUR", "VEG/EUR"};
  std::string venue = "XNEB";
  std::uint64_t perSecond = 1000;  ///< on average, at most a thousand million
  double tradesPercent = 20;
  double damagedPercent = 0;
  std::int64_t startNs = 1'717'407'000'000'000'000;  ///< since 1970
};

/// How a datagram is corrupted.
enum class Damage {
  None,
  CutShort,       ///< it ends within its last value
  UnknownField,   ///< a record of a field that the dictionary does not have follows the others
  RepeatedField,  ///< the first record follows the others again
  FirstByte,      ///< it begins with the code of no encoding
};
constexpr std::size_t kDamages = 5;

struct FeedCounts {
  std::uint64_t messages = 0;
  std::uint64_t trades = 0;
  std::array<std::uint64_t, kDamages> damages{};
};

/// Makes the datagrams one by one. The process's dictionary must be the program's own for as long.
class Feed {
 public:
  /// @throws UsageError when an option cannot be used
  explicit Feed(const FeedOptions& options);

  /// Makes the next one. @return false at the end
  bool next();

  const std::vector<std::uint8_t>& bytes() const noexcept { return m_bytes; }
  std::int64_t timeNs() const noexcept { return m_timeNs; }
  const FeedCounts& counts() const noexcept { return m_counts; }

 private:
  /// A price walks in whole ticks, so that no rounding adds up.
  struct Instrument {
    std::string symbol;
    std::int64_t bidTicks = 0;
    std::int64_t spreadTicks = 1;
    std::int64_t volume = 0;
  };

  std::uint64_t below(std::uint64_t end);
  bool happens(std::uint64_t perMillion);
  void addQuote(MD_Message& message, Instrument& instrument);
  void addTrade(MD_Message& message, Instrument& instrument);
  void damage(const MD_Message& message);

  FeedOptions m_options;
  std::uint64_t m_tradesPerMillion;
  std::uint64_t m_damagedPerMillion;
  // The engine's numbers are the same everywhere; the standard library's distributions are not.
  std::mt19937_64 m_engine;
  std::vector<std::unique_ptr<MD_Message>> m_messages;  // one for each encoding of the options
  std::vector<Instrument> m_instruments;
  std::vector<std::uint8_t> m_bytes;
  std::int64_t m_timeNs = 0;
  FeedCounts m_counts;
};

}  // namespace MD::tool

#endif
