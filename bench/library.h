// The library as a subject: each encoding used through its own class, and mInt as the factory hands it out.
#ifndef MD_BENCH_LIBRARY_H
#define MD_BENCH_LIBRARY_H

#include <cstdint>
#include <cstring>

#include <memory>
#include <type_traits>

#include "md/md_message.h"
#include "works.h"

namespace bench {

// Plain values and the library's own.

template <class Kind>
auto toLibrary(const typename Kind::Type& value) noexcept {
  if constexpr (std::is_same_v<Kind, kind::Buffer>) {
    return MD::MD_Message::Buffer(reinterpret_cast<const std::uint8_t*>(value.data()),
                                  static_cast<std::uint16_t>(value.size()));
  } else if constexpr (std::is_same_v<Kind, kind::String>) {
    return MD::MD_Message::String(value);
  } else if constexpr (std::is_same_v<Kind, kind::EpochNS>) {
    return MD::MD_EpochNS(value);
  } else if constexpr (std::is_same_v<Kind, kind::DateTime>) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    MD::MD_DateTime dateTime;
    MD::MD_DateTime::deserialize(dateTime, bytes);
    return dateTime;
  } else {
    return value;
  }
}

template <class T>
T fromLibrary(T value) noexcept {
  return value;
}
inline std::string_view fromLibrary(MD::MD_Message::String value) noexcept { return value; }
inline std::string_view fromLibrary(MD::MD_Message::Buffer value) noexcept {
  return {reinterpret_cast<const char*>(value.data), value.length};
}
inline std::uint64_t fromLibrary(MD::MD_EpochNS value) noexcept { return value.get(); }
inline std::uint64_t fromLibrary(MD::MD_DateTime value) noexcept {
  char bytes[sizeof(std::uint64_t)];
  MD::MD_DateTime::serialize(bytes, value);
  std::uint64_t word;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

/// The ids that the messages have of their own, constants as in real programs.
struct OwnIds {
  static constexpr Dictionary kDictionary = Dictionary::Small;
  static constexpr std::uint16_t of(std::uint16_t id, unsigned) noexcept { return id; }
};

/// The ids of the quote's fields in the large dictionary.
struct LargeIds {
  static constexpr Dictionary kDictionary = Dictionary::Large;
  static std::uint16_t of(std::uint16_t, unsigned number) noexcept { return s_ids[number]; }
  static inline const std::array<std::uint16_t, kFieldCount<Quote> + 1>& s_ids = largeIds();
};

/// Adds, reads and updates the fields of a message: of an encoding's class, or of the base class.
template <class Ids, class Library>
class LibraryFields {
 public:
  template <class Values>
  static bool add(Library& message, const Values& values);
  template <class Values>
  static bool read(const Library& message, Values& out);

  static bool readTwo(const Library& message, double& bid, double& ask) {
    bool isGood = message.get(Ids::of(kBid, kBid), bid);
    isGood &= message.get(Ids::of(kAsk, kAsk), ask);
    return isGood;
  }
  static bool update(Library& message, const Quote& values) {
    bool isGood = message.update(Ids::of(kBid, kBid), values.bid);
    isGood &= message.update(Ids::of(kAsk, kAsk), values.ask);
    isGood &= message.update(Ids::of(kVolume, kVolume), values.volume);
    isGood &= message.update(Ids::of(kSeq, kSeq), values.seq);
    return isGood;
  }

 private:
  // As a program would write it, a call after the other.
  template <class Kind, class T>
  [[gnu::always_inline]] static bool addOne(Library& message, std::uint16_t id, const T& value) {
    return !isPresent(value) || message.add(id, toLibrary<Kind>(valueOf(value)));
  }
  template <class Kind, class T>
  [[gnu::always_inline]] static bool readOne(const Library& message, std::uint16_t id, T& out) {
    if constexpr (std::is_arithmetic_v<T> && !std::is_base_of_v<kind::DateTime, Kind>) {
      return message.get(id, out);
    } else {
      decltype(toLibrary<Kind>({})) value;
      const bool isThere = message.get(id, value);
      if (isThere) {
        out = fromLibrary(value);
      }
      return isThere || !std::is_same_v<T, typename Kind::Type>;
    }
  }
};

#define MD_BENCH_ADD(name, Name, Kind, id, number) \
  isGood &= addOne<kind::Kind>(message, Ids::of(id, number), values.name);
#define MD_BENCH_READ(name, Name, Kind, id, number) \
  isGood &= readOne<kind::Kind>(message, Ids::of(id, number), out.name);
template <class Ids, class Library>
template <class Values>
bool LibraryFields<Ids, Library>::add(Library& message, const Values& values) {
  bool isGood = true;
  if constexpr (std::is_same_v<Values, Quote>) {
    MD_BENCH_QUOTE_FIELDS(MD_BENCH_ADD)
  } else if constexpr (std::is_same_v<Values, Wide>) {
    MD_BENCH_WIDE_FIELDS(MD_BENCH_ADD)
  } else {
    MD_BENCH_TICK_FIELDS(MD_BENCH_ADD)
  }
  return isGood;
}
template <class Ids, class Library>
template <class Values>
bool LibraryFields<Ids, Library>::read(const Library& message, Values& out) {
  bool isGood = true;
  if constexpr (std::is_same_v<Values, Quote>) {
    MD_BENCH_QUOTE_FIELDS(MD_BENCH_READ)
  } else if constexpr (std::is_same_v<Values, Wide>) {
    MD_BENCH_WIDE_FIELDS(MD_BENCH_READ)
  } else {
    MD_BENCH_TICK_FIELDS(MD_BENCH_READ)
  }
  return isGood;
}
#undef MD_BENCH_ADD
#undef MD_BENCH_READ

/// What build and update end with.
inline Bytes bytesOf(const MD::MD_Message& message) { return {message.getBinary(), message.getSizeImpl()}; }

/// An encoding through its own class.
template <class Encoding, class Ids = OwnIds>
struct Library : SubjectDefaults<Library<Encoding, Ids>> {
  static constexpr Dictionary kDictionary = Ids::kDictionary;
  static constexpr bool kIsLarge = Ids::kDictionary == Dictionary::Large;
  static constexpr Coverage kCoverage{kIsLarge ? "X" : "Q", true, true, true, true, !kIsLarge, !kIsLarge, !kIsLarge};

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    void clear() { m_message.clearImpl(); }
    Bytes build(const Values& values) {
      bool isGood = Fields::add(m_message, values);
      benchmark::DoNotOptimize(isGood);
      return bytes();
    }
    bool parse(Bytes bytes) { return m_message.setBinaryImpl(bytes.data, static_cast<std::uint32_t>(bytes.size)); }
    bool read(Values& out) const { return Fields::read(m_message, out); }
    bool readTwo(double& bid, double& ask) const { return Fields::readTwo(m_message, bid, ask); }
    Bytes update(const Values& values) {
      bool isGood = Fields::update(m_message, values);
      benchmark::DoNotOptimize(isGood);
      return bytes();
    }

   private:
    using Fields = LibraryFields<Ids, Encoding>;

    Bytes bytes() const { return {m_message.getBinary(), m_message.getSizeImpl()}; }

    Encoding m_message;
  };
};

/// mInt as the factory hands it out: on the heap, used through the base class.
template <std::uint8_t code>
struct FactoryMade : SubjectDefaults<FactoryMade<code>> {
  static constexpr Dictionary kDictionary = Dictionary::Small;

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    void clear() { message().clearImpl(); }
    Bytes build(const Values& values) {
      bool isGood = Fields::add(message(), values);
      benchmark::DoNotOptimize(isGood);
      return bytesOf(message());
    }
    bool parse(Bytes bytes) {
      const auto size = static_cast<std::uint32_t>(bytes.size);
      if (m_message != nullptr) {
        return m_message->setBinaryImpl(bytes.data, size);
      }
      m_message = MD::MD_Message::createFromBytes(bytes.data, size);
      return m_message != nullptr;
    }
    bool read(Values& out) const { return Fields::read(*m_message, out); }
    bool readTwo(double& bid, double& ask) const { return Fields::readTwo(*m_message, bid, ask); }
    Bytes update(const Values& values) {
      bool isGood = Fields::update(message(), values);
      benchmark::DoNotOptimize(isGood);
      return bytesOf(message());
    }

   private:
    using Fields = LibraryFields<OwnIds, MD::MD_Message>;

    MD::MD_Message& message() {
      if (m_message == nullptr) {
        m_message = MD::MD_Message::createFromPB(code);
      }
      return *m_message;
    }

    std::unique_ptr<MD::MD_Message> m_message;
  };
};

}  // namespace bench

#endif
