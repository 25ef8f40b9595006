// BSON by libbson: keys are the fields' numbers as text, the shortest there are. Reading is in place and lazy, in one
// walk that ends with the last field wanted; numbers are overwritten in place.

#include <bson/bson.h>

#include "peers/keys.h"
#include "works.h"

namespace bench {
namespace {

struct Bson : SubjectDefaults<Bson> {
  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {
      bson_init(&m_document);
    }
    ~Message() { bson_destroy(&m_document); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    void clear() { bson_reinit(&m_document); }
    Bytes build(const Values& values);
    bool parse(Bytes bytes) { return bson_init_static(&m_received, bytes.data, bytes.size); }
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      bson_iter_t field;
      bson_iter_init(&field, &m_received);
      for (int missing = 2; bson_iter_next(&field);) {
        const unsigned number = numberOf(bson_iter_key_unsafe(&field));
        if (number == kBid || number == kAsk) {
          (number == kBid ? bid : ask) = bson_iter_double_unsafe(&field);
          if (--missing == 0) {
            return true;
          }
        }
      }
      return false;
    }
    Bytes update(const Values& values) {
      bson_iter_t field;
      bson_iter_init(&field, &m_document);
      for (int missing = 4; missing != 0 && bson_iter_next(&field);) {
        switch (numberOf(bson_iter_key_unsafe(&field))) {
          case kBid:
            bson_iter_overwrite_double(&field, values.bid);
            --missing;
            break;
          case kAsk:
            bson_iter_overwrite_double(&field, values.ask);
            --missing;
            break;
          case kVolume:
            bson_iter_overwrite_int32(&field, values.volume);
            --missing;
            break;
          case kSeq:
            bson_iter_overwrite_int64(&field, values.seq);
            --missing;
            break;
          default:
            break;
        }
      }
      return bytes();
    }

   private:
    template <class Kind, class T>
    void put(const char* key, int keyLength, const T& optional) {
      if (!isPresent(optional)) {
        return;
      }
      const typename Kind::Type& value = valueOf(optional);
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        bson_append_int32(&m_document, key, keyLength, value);
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        bson_append_int32(&m_document, key, keyLength, value);
      } else if constexpr (std::is_same_v<Kind, kind::Float> || std::is_same_v<Kind, kind::Double>) {
        bson_append_double(&m_document, key, keyLength, static_cast<double>(value));
      } else if constexpr (std::is_same_v<Kind, kind::String>) {
        bson_append_utf8(&m_document, key, keyLength, value.data(), static_cast<int>(value.size()));
      } else if constexpr (std::is_same_v<Kind, kind::Buffer>) {
        bson_append_binary(&m_document, key, keyLength, BSON_SUBTYPE_BINARY,
                           reinterpret_cast<const std::uint8_t*>(value.data()),
                           static_cast<std::uint32_t>(value.size()));
      } else {
        bson_append_int64(&m_document, key, keyLength, static_cast<std::int64_t>(value));
      }
    }
    template <class Kind, class T>
    static void take(const bson_iter_t& field, T& out) {
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        out = static_cast<char>(bson_iter_int32_unsafe(&field));
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        out = bson_iter_int32_unsafe(&field);
      } else if constexpr (std::is_same_v<Kind, kind::Float> || std::is_same_v<Kind, kind::Double>) {
        out = static_cast<typename Kind::Type>(bson_iter_double_unsafe(&field));
      } else if constexpr (std::is_same_v<Kind, kind::String>) {
        std::uint32_t length = 0;
        const char* text = bson_iter_utf8(&field, &length);
        out = std::string_view(text, length);
      } else if constexpr (std::is_same_v<Kind, kind::Buffer>) {
        bson_subtype_t subtype;
        std::uint32_t length = 0;
        const std::uint8_t* bytes = nullptr;
        bson_iter_binary(&field, &subtype, &length, &bytes);
        out = std::string_view(reinterpret_cast<const char*>(bytes), length);
      } else {
        out = static_cast<typename Kind::Type>(bson_iter_int64_unsafe(&field));
      }
    }

    Bytes bytes() const { return {bson_get_data(&m_document), m_document.len}; }

    bson_t m_document;
    bson_t m_received;
  };
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) \
  put<kind::Kind>(#number, static_cast<int>(sizeof #number - 1), values.name);
#define MD_BENCH_CASE(name, Name, Kind, id, number) \
  case number:                                      \
    take<kind::Kind>(field, out.name);              \
    break;
#define MD_BENCH_DEFINE(Values, FIELDS)                      \
  template <>                                                \
  Bytes Bson::Message<Values>::build(const Values& values) { \
    FIELDS(MD_BENCH_PUT)                                     \
    return bytes();                                          \
  }                                                          \
  template <>                                                \
  bool Bson::Message<Values>::read(Values& out) const {      \
    bson_iter_t field;                                       \
    if (!bson_iter_init(&field, &m_received)) {              \
      return false;                                          \
    }                                                        \
    while (bson_iter_next(&field)) {                         \
      switch (numberOf(bson_iter_key_unsafe(&field))) {      \
        FIELDS(MD_BENCH_CASE)                                \
        default:                                             \
          break;                                             \
      }                                                      \
    }                                                        \
    return true;                                             \
  }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

const bool kIsRegistered = registerSubject<Bson>("libbson");

}  // namespace
}  // namespace bench
