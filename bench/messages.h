// The benchmark's messages as plain values, in which every subject takes its input and gives its answers.
#ifndef MD_BENCH_MESSAGES_H
#define MD_BENCH_MESSAGES_H

#include <cstdint>

#include <optional>
#include <string_view>
#include <vector>

#include "message_lists.h"

// Expands OP(structure, X-list of its fields) for each message.
#define MD_BENCH_MESSAGES(OP)      \
  OP(Quote, MD_BENCH_QUOTE_FIELDS) \
  OP(Wide, MD_BENCH_WIDE_FIELDS)   \
  OP(Tick, MD_BENCH_TICK_FIELDS)

namespace bench {

/// A kind of field and the type of its plain value.
namespace kind {
struct Char {
  using Type = char;
};
struct Int {
  using Type = std::int32_t;
};
struct SInt : Int {};
struct Int64 {
  using Type = std::int64_t;
};
struct Float {
  using Type = float;
};
struct Double {
  using Type = double;
};
struct String {
  using Type = std::string_view;
};
struct Buffer : String {};
struct DateTime {
  using Type = std::uint64_t;  // the packed word
};
struct EpochNS : DateTime {};
}  // namespace kind

/// Sixteen fields, all of them always there.
struct Quote {
#define MD_BENCH_MEMBER(name, Name, Kind, id, number) kind::Kind::Type name;
  MD_BENCH_QUOTE_FIELDS(MD_BENCH_MEMBER)
  static constexpr const char* kName = "Q";
};

/// The numbers, and ids, of the quote's fields that some works pick out.
inline constexpr std::uint16_t kSeq = 4;
inline constexpr std::uint16_t kBid = 5;
inline constexpr std::uint16_t kAsk = 7;
inline constexpr std::uint16_t kVolume = 12;

/// Two hundred fields, all of them always there.
struct Wide {
  MD_BENCH_WIDE_FIELDS(MD_BENCH_MEMBER)
#undef MD_BENCH_MEMBER
  static constexpr const char* kName = "B";
};

/// A recorded quote or trade; a member without a value was not sent.
struct Tick {
#define MD_BENCH_MEMBER(name, Name, Kind, id, number) std::optional<kind::Kind::Type> name;
  MD_BENCH_TICK_FIELDS(MD_BENCH_MEMBER)
#undef MD_BENCH_MEMBER
  static constexpr const char* kName = "R";
};

/// Whether a message of `Values` may lack fields.
template <class Values>
inline constexpr bool kIsSparse = false;
template <>
inline constexpr bool kIsSparse<Tick> = true;

/// The number of fields that a message of `Values` can have.
template <class Values>
inline constexpr unsigned kFieldCount = 0;
#define MD_BENCH_ONE(name, Name, Kind, id, number) +1
#define MD_BENCH_COUNT(Values, FIELDS) \
  template <>                          \
  inline constexpr unsigned kFieldCount<Values> = 0 FIELDS(MD_BENCH_ONE);
MD_BENCH_MESSAGES(MD_BENCH_COUNT)
#undef MD_BENCH_COUNT
#undef MD_BENCH_ONE

// Members of full and of sparse messages, handled alike.

template <class T>
constexpr bool isPresent(const T&) noexcept {
  return true;
}
template <class T>
constexpr bool isPresent(const std::optional<T>& value) noexcept {
  return value.has_value();
}
template <class T>
constexpr const T& valueOf(const T& value) noexcept {
  return value;
}
template <class T>
constexpr const T& valueOf(const std::optional<T>& value) noexcept {
  return *value;
}
/// Takes the answer of a subject that knows no absent fields but gives 0 or an empty text for them; the recorded
/// messages hold neither.
template <class T>
void takeDefaulted(T& out, T value) noexcept {
  out = value;
}
template <class T>
void takeDefaulted(std::optional<T>& out, T value) noexcept {
  out = value == T{} ? std::nullopt : std::optional<T>(value);
}

/// The number of fields that are there.
template <class Values>
unsigned presentFields(const Values& values) noexcept;
#define MD_BENCH_IF_PRESENT(name, Name, Kind, id, number) +(isPresent(values.name) ? 1U : 0U)
#define MD_BENCH_COUNT(Values, FIELDS)                                                    \
  template <>                                                                             \
  inline unsigned presentFields<Values>(const Values& values [[maybe_unused]]) noexcept { \
    return 0U FIELDS(MD_BENCH_IF_PRESENT);                                                \
  }
MD_BENCH_MESSAGES(MD_BENCH_COUNT)
#undef MD_BENCH_COUNT
#undef MD_BENCH_IF_PRESENT

/// The name of the first field in which two messages differ, or null.
/// @param withDateTimes  whether date-times are compared too
template <class Values>
const char* firstDifference(const Values& a, const Values& b, bool withDateTimes);

/// What every subject is given, the same in each run: 64 different quotes and wide messages, and the recorded ticks.
template <class Values>
const std::vector<Values>& messages();

/// Why there are no recorded ticks; null when there are.
const char* whyNoTicks();

}  // namespace bench

#endif
