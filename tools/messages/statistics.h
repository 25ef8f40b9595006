// Counts over many messages, in memory that does not grow with their number.
#ifndef MDMSG_STATISTICS_H
#define MDMSG_STATISTICS_H

#include <cstddef>
#include <cstdint>

#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "messages/groups.h"
#include "text/time_text.h"
#include "transport/message_source.h"

namespace MD::tool {

/// How many events happened when: bars of equal width from the first event on. The bars grow wider as the
/// span does; their number stays below a limit.
class RateHistogram {
 public:
  RateHistogram() = default;
  /// With bars of this width, whose number stays below a larger limit.
  explicit RateHistogram(std::int64_t widthNs) : m_widthNs(widthNs), m_isFixed(true) {}

  /// @param timeNs  not negative
  /// @throws UsageError when bars of a given width become too many
  void add(std::int64_t timeNs);

  bool isEmpty() const noexcept { return m_counts.empty(); }
  /// When one of the bars begins, 1970 for one that does so before.
  std::int64_t barBeginNs(std::size_t index) const noexcept;
  std::int64_t widthNs() const noexcept { return m_widthNs; }
  const std::vector<std::uint64_t>& counts() const noexcept { return m_counts; }

  std::int64_t firstNs() const noexcept { return m_firstNs; }
  std::int64_t lastNs() const noexcept { return m_lastNs; }

 private:
  static constexpr std::size_t kMostBars = 60;
  static constexpr std::size_t kMostFixedBars = 10'000;

  void findBar(std::int64_t timeNs);
  void widen();
  void moveBegin(std::int64_t timeNs);

  std::int64_t m_beginNs = 0;
  std::int64_t m_widthNs = 1'000'000;
  std::int64_t m_firstNs = 0;
  std::int64_t m_lastNs = 0;
  bool m_isFixed = false;
  bool m_isNextFive = false;
  std::size_t m_bar = 0;  // the one of the time that came last, from m_barBeginNs to before m_barEndNs
  std::int64_t m_barBeginNs = 0;
  std::int64_t m_barEndNs = 0;
  std::vector<std::uint64_t> m_counts;
};

/// How many messages have which size. Exact: there is a count for each size that occurs.
class SizeHistogram {
 public:
  void add(std::uint64_t sizeBytes) {
    ++(sizeBytes < m_small.size() ? m_small[static_cast<std::size_t>(sizeBytes)] : m_large[sizeBytes]);
    ++m_total;
  }

  void add(const SizeHistogram& others);

  bool isEmpty() const noexcept { return m_total == 0; }
  std::uint64_t smallest() const;
  std::uint64_t largest() const;
  /// The smallest size that `percent` of all do not exceed.
  std::uint64_t percentile(unsigned percent) const;

  struct Bar {
    std::uint64_t from = 0;
    std::uint64_t to = 0;  ///< the last size that counts
    std::uint64_t count = 0;
  };
  /// All sizes in bars of equal width, `most` at most.
  std::vector<Bar> bars(std::size_t most) const;

 private:
  /// Calls `use(size, count)` for each size that occurs, the smallest first.
  template <class Use>
  void forEach(Use use) const;

  std::vector<std::uint64_t> m_small = std::vector<std::uint64_t>(2048);  // by size: those of nearly all messages
  std::map<std::uint64_t, std::uint64_t> m_large;
  std::uint64_t m_total = 0;
};

struct EncodingCount {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;
};

/// What was seen.
struct Statistics {
  std::array<EncodingCount, std::size(ENCODINGS::kAll)> encodings;  ///< in that order
  std::uint64_t messages = 0;                                       ///< in one of the encodings, sound or not
  std::uint64_t bytes = 0;                                          ///< of them
  std::uint64_t foreign = 0;                                        ///< have an unknown encoding byte
  std::uint64_t truncated = 0;                                      ///< end inside a record
  std::uint64_t withUnknown = 0;  ///< not truncated, with a field that the dictionary lacks
  std::uint64_t malformed = 0;    ///< neither, but with a value that cannot be read or a repeated field
  std::map<std::uint16_t, std::uint64_t> unknownIds;  ///< in how many records each is; of `IterMap` only the first one
  std::uint64_t unusable = 0;                         ///< lines and packets that are not messages
  std::vector<std::uint64_t> fields =
      std::vector<std::uint64_t>(65536);  ///< by id: in how many messages it can be read
  SizeHistogram sizes;
  RateHistogram times;
  std::optional<CaptureCounts> capture;
  EndpointTable endpoints;  ///< of captures: of all datagrams, unrecognised ones too
  std::optional<GroupTable> groups;
  std::optional<SequenceCheck> sequence;

  /// Adds what was counted of other messages. Times are left to the caller, as their order matters.
  Statistics& operator+=(const Statistics& others);
};

/// Counts messages as they came.
class MessageCounter {
 public:
  explicit MessageCounter(const MD_FieldMap& map) : m_map(map), m_lastSeen(std::size_t{map.compactCount()} + 1) {}

  /// All but the time.
  void count(const InputMessage& input, Statistics& statistics);

 private:
  void countRecords(const InputMessage& input, Statistics& statistics);

  const MD_FieldMap& m_map;
  std::uint64_t m_message = 0;            // number of the current message
  std::vector<std::uint64_t> m_lastSeen;  // by slot: twice the number of the message, plus 1 where it was readable
};

enum class StatsFormat : std::uint8_t { Text, Json, Csv };

/// How statistics are shown.
struct ReportOptions {
  StatsFormat format = StatsFormat::Text;
  TimeZone zone;
  std::size_t columns = 80;  ///< of text: the longest line
  std::size_t top = 20;      ///< how many groups and endpoints
  std::string groupedBy;     ///< the names of their fields
};

/// Appends a report: for people, bars included, or as a JSON object or CSV records.
void appendReport(const Statistics& statistics, const FieldNames& names, const ReportOptions& options,
                  std::string& out);

/// The rate over time and the distribution of sizes as an SVG picture.
std::string svgOf(const Statistics& statistics, const TimeZone& zone);

/// The same and all counts as one page of HTML that refers to nothing outside it.
std::string pageOf(const Statistics& statistics, const FieldNames& names, const ReportOptions& options);

/// What is fixed of it: style, script, and a mark where the report goes.
extern const char* const kStatisticsPage;

}  // namespace MD::tool

#endif
