// What one writes by hand: a hash map of variants, and a loop that writes it out and one that reads it in.

#include <cstring>

#include <string>
#include <unordered_map>
#include <variant>

#include "works.h"

namespace bench {
namespace {

struct VariantMap : SubjectDefaults<VariantMap> {
  template <class Values>
  struct Context {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(16384);
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context) : m_bytes(context.bytes) { m_fields.reserve(kFieldCount<Values>); }

    void clear() { m_fields.clear(); }
    Bytes build(const Values& values);
    bool parse(Bytes bytes);
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      get(kBid, bid);
      get(kAsk, ask);
      return true;
    }
    Bytes update(const Values& values) {
      m_fields[kBid] = values.bid;
      m_fields[kAsk] = values.ask;
      m_fields[kVolume] = values.volume;
      m_fields[kSeq] = values.seq;
      return write();
    }

   private:
    using Value = std::variant<char, std::int32_t, std::int64_t, float, double, std::uint64_t, std::string>;

    template <class T>
    void put(std::uint16_t number, const T& value) {
      if (isPresent(value)) {
        using Plain = std::decay_t<decltype(valueOf(value))>;
        if constexpr (std::is_same_v<Plain, std::string_view>) {
          m_fields.emplace(number, Value(std::in_place_type<std::string>, valueOf(value)));
        } else {
          m_fields.emplace(number, Value(std::in_place_type<Plain>, valueOf(value)));
        }
      }
    }
    template <class T>
    void get(std::uint16_t number, T& out) const {
      const auto found = m_fields.find(number);
      if (found == m_fields.end()) {
        return;
      }
      using Plain = std::decay_t<decltype(valueOf(out))>;
      using Held = std::conditional_t<std::is_same_v<Plain, std::string_view>, std::string, Plain>;
      if (const Held* value = std::get_if<Held>(&found->second)) {
        out = *value;
      }
    }

    /// Records of number (2 bytes), type (1), length (2) and value.
    Bytes write() {
      std::uint8_t* to = m_bytes.data();
      for (const auto& [number, value] : m_fields) {
        std::memcpy(to, &number, 2);
        to[2] = static_cast<std::uint8_t>(value.index());
        std::visit([&to](const auto& held) { writeValue(to, held); }, value);
      }
      return {m_bytes.data(), static_cast<std::size_t>(to - m_bytes.data())};
    }
    template <class T>
    static void writeValue(std::uint8_t*& to, const T& value) {
      constexpr std::uint16_t kLength = sizeof value;
      std::memcpy(to + 3, &kLength, 2);
      std::memcpy(to + 5, &value, kLength);
      to += 5 + kLength;
    }
    static void writeValue(std::uint8_t*& to, const std::string& value) {
      const auto length = static_cast<std::uint16_t>(value.size());
      std::memcpy(to + 3, &length, 2);
      std::memcpy(to + 5, value.data(), length);
      to += 5 + length;
    }
    template <std::size_t index>
    static Value readValue(const std::uint8_t* from, std::uint16_t length) {
      using Held = std::variant_alternative_t<index, Value>;
      if constexpr (std::is_same_v<Held, std::string>) {
        return Value(std::in_place_index<index>, reinterpret_cast<const char*>(from), length);
      } else {
        Held value{};
        if (length == sizeof value) {
          std::memcpy(&value, from, sizeof value);
        }
        return Value(std::in_place_index<index>, value);
      }
    }

    std::vector<std::uint8_t>& m_bytes;
    std::unordered_map<std::uint16_t, Value> m_fields;
  };
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) put(number, values.name);
#define MD_BENCH_GET(name, Name, Kind, id, number) get(number, out.name);
#define MD_BENCH_DEFINE(Values, FIELDS)                            \
  template <>                                                      \
  Bytes VariantMap::Message<Values>::build(const Values& values) { \
    FIELDS(MD_BENCH_PUT)                                           \
    return write();                                                \
  }                                                                \
  template <>                                                      \
  bool VariantMap::Message<Values>::read(Values& out) const {      \
    FIELDS(MD_BENCH_GET)                                           \
    return true;                                                   \
  }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

template <class Values>
bool VariantMap::Message<Values>::parse(Bytes bytes) {
  m_fields.clear();
  for (std::size_t at = 0; bytes.size - at >= 5;) {
    std::uint16_t number;
    std::uint16_t length;
    std::memcpy(&number, bytes.data + at, 2);
    std::memcpy(&length, bytes.data + at + 3, 2);
    if (length > bytes.size - at - 5) {
      return false;
    }
    const std::uint8_t* from = bytes.data + at + 5;
    switch (bytes.data[at + 2]) {
#define MD_BENCH_CASE(index)                                  \
  case index:                                                 \
    m_fields.emplace(number, readValue<index>(from, length)); \
    break;
      MD_BENCH_CASE(0)
      MD_BENCH_CASE(1)
      MD_BENCH_CASE(2)
      MD_BENCH_CASE(3)
      MD_BENCH_CASE(4)
      MD_BENCH_CASE(5)
      MD_BENCH_CASE(6)
#undef MD_BENCH_CASE
      default:
        return false;
    }
    at += std::size_t{5} + length;
  }
  return true;
}

const bool kIsRegistered = registerSubject<VariantMap>("hand-written map");

}  // namespace
}  // namespace bench
