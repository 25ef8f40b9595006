#include "messages/feed.h"

#include <cmath>

#include <algorithm>
#include <limits>

#include "base/diagnostics.h"
#include "base/encodings.h"
#include "md/md_fieldmap.h"
#include "messages/message_builder.h"

namespace MD::tool {
namespace {

/// The fields of the program's own dictionary that the feed sends.
enum FieldId : std::uint16_t {
  kSymbol = 1,
  kVenue = 3,
  kMsgKind = 10,
  kSeq = 11,
  kSendTime = 15,
  kBid = 22,
  kAsk = 23,
  kBidSize = 24,
  kAskSize = 25,
  kBidOrders = 28,
  kAskOrders = 29,
  kLast = 40,
  kLastSize = 41,
  kSide = 42,
  kTradeId = 44,
  kVolume = 66,
};
constexpr std::uint16_t kUnknownField = 65000;

constexpr double kTicksPerUnit = 100;
constexpr double kLotsPerUnit = 10;
constexpr std::int64_t kLowestTicks = 100;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
constexpr std::uint64_t kMillion = 1'000'000;

std::uint64_t perMillion(const char* option, double percent) {
  if (!(percent >= 0 && percent <= 100)) {
    throw UsageError(std::string(option) + " is a percentage, 0 to 100");
  }
  return static_cast<std::uint64_t>(std::llround(percent * 10'000));
}

double price(std::int64_t ticks) { return static_cast<double>(ticks) / kTicksPerUnit; }

}  // namespace

Feed::Feed(const FeedOptions& options)
    : m_options(options),
      m_tradesPerMillion(perMillion("--trades", options.tradesPercent)),
      m_damagedPerMillion(perMillion("--damaged", options.damagedPercent)),
      m_engine(options.seed),
      m_timeNs(options.startNs) {
  if (options.perSecond == 0 || options.perSecond > kNsPerSecond) {
    throw UsageError("--rate is a number of messages/s, 1 to 1000000000");
  }
  if (options.startNs < 0) {
    throw UsageError("--start is a time from 1970 on");
  }
  for (const std::string& name : options.encodings) {
    const std::uint8_t code = encodingCode(name);
    if (code == 0) {
      throw UsageError("unknown encoding " + inQuotes(name));
    }
    m_messages.push_back(MD_Message::createFromPB(code));
  }
  for (const std::string& symbol : options.symbols) {
    constexpr std::size_t kLongest = 254;
    if (symbol.empty() || symbol.size() > kLongest) {
      throw UsageError("a symbol has 1 to 254 bytes");
    }
    Instrument instrument;
    instrument.symbol = symbol;
    instrument.bidTicks = static_cast<std::int64_t>(1'000 + below(50'000));
    m_instruments.push_back(instrument);
  }
  if (m_messages.empty() || m_instruments.empty()) {
    throw UsageError("a feed requires at least one encoding and one symbol");
  }
}

bool Feed::next() {
  if (m_counts.messages == m_options.messages) {
    return false;
  }
  if (m_counts.messages != 0) {
    // From half the mean distance to half as much again.
    const std::uint64_t mean = kNsPerSecond / m_options.perSecond;
    const auto step = static_cast<std::int64_t>(mean - mean / 2 + below(mean / 2 * 2 + 1));
    if (step > std::numeric_limits<std::int64_t>::max() - m_timeNs) {
      throw UsageError("--start is too late for so many messages: times end in 2262");
    }
    m_timeNs += step;
  }
  ++m_counts.messages;
  MD_Message& message = *m_messages[below(m_messages.size())];
  Instrument& instrument = m_instruments[below(m_instruments.size())];
  message.clearImpl();
  addValue(message, kSeq, static_cast<std::int64_t>(m_counts.messages));
  addString(message, kSymbol, instrument.symbol);
  addString(message, kVenue, m_options.venue);
  if (happens(m_tradesPerMillion)) {
    ++m_counts.trades;
    addTrade(message, instrument);
  } else {
    addQuote(message, instrument);
  }
  addValue(message, kSendTime, MD_EpochNS(static_cast<std::uint64_t>(m_timeNs)));
  m_bytes.assign(message.getBinary(), message.getBinary() + message.getSizeImpl());
  if (happens(m_damagedPerMillion)) {
    damage(message);
  } else {
    ++m_counts.damages[static_cast<std::size_t>(Damage::None)];
  }
  return true;
}

/// A number from 0 to `end` - 1. The remainder favours small ones by less than one in 2^40 for the ends used here.
std::uint64_t Feed::below(std::uint64_t end) { return m_engine() % end; }

bool Feed::happens(std::uint64_t perMillion) { return below(kMillion) < perMillion; }

void Feed::addQuote(MD_Message& message, Instrument& instrument) {
  constexpr std::uint64_t kStep = 3;
  instrument.bidTicks += static_cast<std::int64_t>(below(2 * kStep + 1)) - static_cast<std::int64_t>(kStep);
  instrument.bidTicks = std::max(instrument.bidTicks, kLowestTicks);
  instrument.spreadTicks = static_cast<std::int64_t>(1 + below(4));
  addValue(message, kMsgKind, 'Q');
  addValue(message, kBid, price(instrument.bidTicks));
  addValue(message, kAsk, price(instrument.bidTicks + instrument.spreadTicks));
  addValue(message, kBidSize, static_cast<double>(1 + below(10'000)) / kLotsPerUnit);
  addValue(message, kAskSize, static_cast<double>(1 + below(10'000)) / kLotsPerUnit);
  addValue(message, kBidOrders, static_cast<std::int32_t>(1 + below(300)));
  addValue(message, kAskOrders, static_cast<std::int32_t>(1 + below(300)));
}

void Feed::addTrade(MD_Message& message, Instrument& instrument) {
  const bool isBuy = below(2) == 0;
  const auto lots = static_cast<std::int64_t>(1 + below(1'000));
  instrument.volume += lots;
  addValue(message, kMsgKind, 'T');
  addValue(message, kLast, price(instrument.bidTicks + (isBuy ? instrument.spreadTicks : 0)));
  addValue(message, kLastSize, static_cast<double>(lots) / kLotsPerUnit);
  addValue(message, kSide, isBuy ? 'B' : 'S');
  addString(message, kTradeId, 'T' + std::to_string(m_counts.trades));
  addValue(message, kVolume, instrument.volume);
}

/// Corrupts the bytes, in a way that receivers detect.
void Feed::damage(const MD_Message& message) {
  const auto kind = static_cast<Damage>(1 + below(kDamages - 1));
  ++m_counts.damages[static_cast<std::size_t>(kind)];
  switch (kind) {
    case Damage::CutShort:
      // The last value is the time, of eight bytes.
      m_bytes.resize(m_bytes.size() - static_cast<std::size_t>(1 + below(7)));
      return;
    case Damage::UnknownField: {
      constexpr std::uint8_t kLow = kUnknownField & 0xff;
      constexpr std::uint8_t kHigh = kUnknownField >> 8;
      const std::uint8_t encoding = message.getPB();
      const std::vector<std::uint8_t> record =
          encoding == ENCODINGS::MINT ? std::vector<std::uint8_t>{kLow, kHigh, 1, 0}
          : encoding == ENCODINGS::ITERMAP
              ? std::vector<std::uint8_t>{kLow, kHigh}
              : std::vector<std::uint8_t>{kHigh, kLow, 0, DATATYPES::CHAR, 0, 0, 0, 1, 'X'};
      m_bytes.insert(m_bytes.end(), record.begin(), record.end());
      return;
    }
    case Damage::RepeatedField: {
      // The number, which comes first.
      std::uint8_t type = 0;
      std::uint32_t sizeBytes = 0;
      const std::uint8_t* const first = message.getBinary();
      const std::uint8_t* const end = message.fieldData(kSeq, type, sizeBytes) + sizeBytes;
      const std::size_t header = message.getPB() == ENCODINGS::MSGT ? 4 : 1;
      m_bytes.insert(m_bytes.end(), first + header, end);
      return;
    }
    case Damage::FirstByte:
      m_bytes[0] = static_cast<std::uint8_t>(0x80 + below(0x80));
      return;
    case Damage::None:
      return;
  }
}

}  // namespace MD::tool
