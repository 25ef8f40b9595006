// Counts by value of fields, by endpoints, and gaps in sequence numbers, each in bounded memory.
#ifndef MDMSG_GROUPS_H
#define MDMSG_GROUPS_H

#include <cstddef>
#include <cstdint>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "dictionary/field_names.h"
#include "transport/message_source.h"
#include "transport/packet.h"

namespace MD::tool {

/// Appends a field's value as text, read from received bytes. @return false when the message does not have it
bool appendPeekedValue(const InputMessage& input, Field field, std::string& out);

struct GroupCount {
  std::uint64_t messages = 0;
  std::uint64_t bytes = 0;
  std::optional<std::int64_t> firstNs;
  std::optional<std::int64_t> lastNs;

  void add(std::size_t sizeBytes, const std::optional<std::int64_t>& timeNs);
};

/// Messages by the values of some fields.
class GroupTable {
 public:
  /// The most values that are counted one by one.
  static constexpr std::size_t kMostGroups = 100'000;

  void add(const std::string& key, std::size_t sizeBytes, const std::optional<std::int64_t>& timeNs);

  using Row = std::pair<std::string, GroupCount>;
  /// The most frequent ones, at most `most`.
  std::vector<Row> top(std::size_t most) const;
  std::size_t size() const noexcept { return m_groups.size(); }
  /// Messages of further values.
  const GroupCount& others() const noexcept { return m_others; }

 private:
  std::unordered_map<std::string, GroupCount> m_groups;
  GroupCount m_others;
};

/// Datagrams by where they came from and where they went.
class EndpointTable {
 public:
  static constexpr std::size_t kMostPairs = 10'000;

  void add(const Endpoint& source, const Endpoint& destination, std::size_t sizeBytes,
           const std::optional<std::int64_t>& timeNs);

  struct Row {
    Endpoint source;
    Endpoint destination;
    GroupCount count;
  };
  std::vector<Row> top(std::size_t most) const;
  std::size_t size() const noexcept { return m_pairs.size(); }
  const GroupCount& others() const noexcept { return m_others; }

 private:
  using Key = std::pair<std::string, std::string>;
  static Key keyOf(const Endpoint& source, const Endpoint& destination);

  std::map<Key, Row> m_pairs;
  Row* m_last = nullptr;  // nearly always the one of the next message
  GroupCount m_others;
};

/// Sequence numbers that should grow by one, of all messages or per value of a field.
class SequenceCheck {
 public:
  static constexpr std::size_t kMostKeys = 100'000;
  static constexpr std::size_t kMostGapsPerKey = 1000;
  static constexpr std::size_t kMostEvents = 20;

  struct Event {
    enum class Kind : std::uint8_t { Gap, Duplicate, Late };
    Kind kind;
    std::string key;
    std::int64_t first;  ///< of a gap: the first number that is missing; else the number
    std::int64_t last;
    std::string place;
  };

  /// @param place  returns where the message is; called only for what goes into events()
  void add(const std::string& key, std::int64_t number, const std::function<std::string()>& place);

  std::uint64_t numbers() const noexcept { return m_numbers; }
  std::uint64_t missing() const noexcept { return m_missing; }
  std::uint64_t gaps() const noexcept { return m_gaps; }
  std::uint64_t duplicates() const noexcept { return m_duplicates; }
  std::uint64_t late() const noexcept { return m_late; }
  /// Messages of further keys, which are not checked.
  std::uint64_t unchecked() const noexcept { return m_unchecked; }
  /// The first ones.
  const std::vector<Event>& events() const noexcept { return m_events; }

 private:
  struct State {
    std::int64_t lowest;
    std::int64_t highest;
    std::map<std::int64_t, std::int64_t> missing;  // first to last of each gap
  };

  void addGap(const std::string& key, std::int64_t before, std::int64_t after,
              const std::function<std::string()>& place, State& state);
  void note(Event::Kind kind, const std::string& key, std::int64_t first, std::int64_t last,
            const std::function<std::string()>& place);

  std::unordered_map<std::string, State> m_states;
  std::uint64_t m_numbers = 0;
  std::uint64_t m_missing = 0;
  std::uint64_t m_gaps = 0;
  std::uint64_t m_duplicates = 0;
  std::uint64_t m_late = 0;
  std::uint64_t m_unchecked = 0;
  std::vector<Event> m_events;
};

}  // namespace MD::tool

#endif
