// MessagePack: a map from field number to value. Texts are unpacked as references into the received bytes, and the form
// "reused" keeps the zone's memory. All fields are read in one walk over the map.

#include <msgpack.hpp>

#include "works.h"

namespace bench {
namespace {

struct Msgpack : SubjectDefaults<Msgpack> {
  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    void clear() {}
    Bytes build(const Values& values);
    bool parse(Bytes bytes) {
      m_zone.clear();
      std::size_t offset = 0;
      m_object = msgpack::unpack(m_zone, reinterpret_cast<const char*>(bytes.data), bytes.size, offset,
                                 [](msgpack::type::object_type, std::size_t, void*) { return true; });
      return m_object.type == msgpack::type::MAP;
    }
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      bid = find(kBid)->template as<double>();
      ask = find(kAsk)->template as<double>();
      return true;
    }
    Bytes update(const Values& values) {
      if (m_object.type != msgpack::type::MAP) {
        parse({reinterpret_cast<const std::uint8_t*>(m_bytes.data()), m_bytes.size()});
        m_received = std::move(m_bytes);  // what the object's texts refer to
        m_bytes = msgpack::sbuffer();
      }
      set(kBid, values.bid);
      set(kAsk, values.ask);
      set(kVolume, values.volume);
      set(kSeq, values.seq);
      m_bytes.clear();
      msgpack::pack(m_bytes, m_object);
      return bytes();
    }

   private:
    using Packer = msgpack::packer<msgpack::sbuffer>;

    template <class Kind, class T>
    static void put(Packer& packer, std::uint16_t number, const T& optional) {
      if (!isPresent(optional)) {
        return;
      }
      const typename Kind::Type& value = valueOf(optional);
      packer.pack_uint16(number);
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        packer.pack_uint8(static_cast<std::uint8_t>(value));
      } else if constexpr (std::is_same_v<Kind, kind::String>) {
        packer.pack_str(static_cast<std::uint32_t>(value.size()));
        packer.pack_str_body(value.data(), static_cast<std::uint32_t>(value.size()));
      } else if constexpr (std::is_same_v<Kind, kind::Buffer>) {
        packer.pack_bin(static_cast<std::uint32_t>(value.size()));
        packer.pack_bin_body(value.data(), static_cast<std::uint32_t>(value.size()));
      } else if constexpr (std::is_same_v<Kind, kind::Float>) {
        packer.pack_float(value);
      } else if constexpr (std::is_same_v<Kind, kind::Double>) {
        packer.pack_double(value);
      } else {
        packer.pack(value);
      }
    }
    template <class Kind, class T>
    static void take(const msgpack::object& value, T& out) {
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        out = static_cast<char>(value.via.u64);
      } else if constexpr (std::is_same_v<Kind, kind::Float>) {
        out = value.as<float>();
      } else if constexpr (std::is_same_v<Kind, kind::Double>) {
        out = value.as<double>();  // one that is whole has travelled as an integer
      } else if constexpr (std::is_same_v<Kind, kind::String>) {
        out = std::string_view(value.via.str.ptr, value.via.str.size);
      } else if constexpr (std::is_same_v<Kind, kind::Buffer>) {
        out = std::string_view(value.via.bin.ptr, value.via.bin.size);
      } else {
        out = static_cast<typename Kind::Type>(value.via.i64);
      }
    }

    msgpack::object* find(std::uint16_t number) const {
      const msgpack::object_map& map = m_object.via.map;
      for (std::uint32_t i = 0; i < map.size; ++i) {
        if (map.ptr[i].key.via.u64 == number) {
          return &map.ptr[i].val;
        }
      }
      return nullptr;
    }
    template <class T>
    void set(std::uint16_t number, T value) {
      *find(number) = msgpack::object(value);
    }

    Bytes bytes() const { return {reinterpret_cast<const std::uint8_t*>(m_bytes.data()), m_bytes.size()}; }

    msgpack::sbuffer m_bytes;
    msgpack::sbuffer m_received;
    msgpack::zone m_zone;
    msgpack::object m_object;
  };
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) put<kind::Kind>(packer, number, values.name);
#define MD_BENCH_CASE(name, Name, Kind, id, number) \
  case number:                                      \
    take<kind::Kind>(field.val, out.name);          \
    break;
#define MD_BENCH_DEFINE(Values, FIELDS)                         \
  template <>                                                   \
  Bytes Msgpack::Message<Values>::build(const Values& values) { \
    m_bytes.clear();                                            \
    Packer packer(m_bytes);                                     \
    packer.pack_map(presentFields(values));                     \
    FIELDS(MD_BENCH_PUT)                                        \
    return bytes();                                             \
  }                                                             \
  template <>                                                   \
  bool Msgpack::Message<Values>::read(Values& out) const {      \
    const msgpack::object_map& map = m_object.via.map;          \
    for (std::uint32_t i = 0; i < map.size; ++i) {              \
      const msgpack::object_kv& field = map.ptr[i];             \
      switch (field.key.via.u64) {                              \
        FIELDS(MD_BENCH_CASE)                                   \
        default:                                                \
          break;                                                \
      }                                                         \
    }                                                           \
    return true;                                                \
  }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

const bool kIsRegistered = registerSubject<Msgpack>("msgpack");

}  // namespace
}  // namespace bench
