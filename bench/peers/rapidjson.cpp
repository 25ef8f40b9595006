// JSON by RapidJSON: written by its Writer, read in situ into its document tree, from which all fields are taken in one
// walk. Keys are the fields' numbers as text. In the form "reused" output buffer, input buffer and the tree's memory
// live on; the last is the caller's own in both forms.

#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "peers/keys.h"
#include "works.h"

namespace bench {
namespace {

struct Json : SubjectDefaults<Json> {
  template <class Values>
  struct Context {
    std::vector<char> values = std::vector<char>(65536);
    std::vector<char> stack = std::vector<char>(65536);
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context)
        : m_values(context.values.data(), context.values.size()), m_stack(context.stack.data(), context.stack.size()) {}

    void clear() {}
    Bytes build(const Values& values);
    bool parse(Bytes bytes) {
      m_tree.SetNull();
      m_values.Clear();
      m_stack.Clear();
      m_text.assign(reinterpret_cast<const char*>(bytes.data), bytes.size);
      m_tree.ParseInsitu(m_text.data());
      return !m_tree.HasParseError() && m_tree.IsObject();
    }
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      bid = m_tree["5"].GetDouble();
      ask = m_tree["7"].GetDouble();
      return true;
    }
    Bytes update(const Values& values) {
      if (!m_tree.IsObject()) {
        parse(bytes());
      }
      m_tree["5"].SetDouble(values.bid);
      m_tree["7"].SetDouble(values.ask);
      m_tree["12"].SetInt(values.volume);
      m_tree["4"].SetInt64(values.seq);
      m_buffer.Clear();
      m_writer.Reset(m_buffer);
      m_tree.Accept(m_writer);
      return bytes();
    }

   private:
    static_assert(kBid == 5 && kAsk == 7 && kVolume == 12 && kSeq == 4);
    using Tree = rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<>,
                                            rapidjson::MemoryPoolAllocator<>>;
    static constexpr std::size_t kStackBytes = 16384;
    using Writer = rapidjson::Writer<rapidjson::StringBuffer>;
    using Node = rapidjson::Value;

    template <class Kind, class T>
    static void put(Writer& writer, const char* key, unsigned keyLength, const T& optional) {
      if (!isPresent(optional)) {
        return;
      }
      const typename Kind::Type& value = valueOf(optional);
      writer.Key(key, keyLength);
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        writer.String(&value, 1);
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        writer.Int(value);
      } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
        writer.Int64(value);
      } else if constexpr (std::is_same_v<Kind, kind::Float> || std::is_same_v<Kind, kind::Double>) {
        writer.Double(static_cast<double>(value));
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        writer.String(value.data(), static_cast<unsigned>(value.size()));
      } else {
        writer.Uint64(value);
      }
    }
    template <class Kind, class T>
    static void take(const Node& value, T& out) {
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        out = *value.GetString();
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        out = value.GetInt();
      } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
        out = value.GetInt64();
      } else if constexpr (std::is_same_v<Kind, kind::Float> || std::is_same_v<Kind, kind::Double>) {
        out = static_cast<typename Kind::Type>(value.GetDouble());
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        out = std::string_view(value.GetString(), value.GetStringLength());
      } else {
        out = value.GetUint64();
      }
    }

    Bytes bytes() const { return {reinterpret_cast<const std::uint8_t*>(m_buffer.GetString()), m_buffer.GetSize()}; }

    rapidjson::StringBuffer m_buffer;
    std::string m_text;
    rapidjson::MemoryPoolAllocator<> m_values;
    rapidjson::MemoryPoolAllocator<> m_stack;
    Tree m_tree{&m_values, kStackBytes, &m_stack};
    Writer m_writer{m_buffer};
  };
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) put<kind::Kind>(m_writer, #number, sizeof #number - 1, values.name);
#define MD_BENCH_CASE(name, Name, Kind, id, number) \
  case number:                                      \
    take<kind::Kind>(member.value, out.name);       \
    break;
#define MD_BENCH_DEFINE(Values, FIELDS)                                             \
  template <>                                                                       \
  Bytes Json::Message<Values>::build(const Values& values) {                        \
    m_buffer.Clear();                                                               \
    m_writer.Reset(m_buffer);                                                       \
    m_writer.StartObject();                                                         \
    FIELDS(MD_BENCH_PUT)                                                            \
    m_writer.EndObject();                                                           \
    return bytes();                                                                 \
  }                                                                                 \
  template <>                                                                       \
  bool Json::Message<Values>::read(Values& out) const {                             \
    for (const auto& member : m_tree.GetObject()) {                                 \
      switch (numberOf({member.name.GetString(), member.name.GetStringLength()})) { \
        FIELDS(MD_BENCH_CASE)                                                       \
        default:                                                                    \
          break;                                                                    \
      }                                                                             \
    }                                                                               \
    return true;                                                                    \
  }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

const bool kIsRegistered = registerSubject<Json>("rapidjson");

}  // namespace
}  // namespace bench
