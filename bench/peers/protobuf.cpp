// Protocol Buffers with generated classes: messages on the stack or live, and on an arena over memory of the caller's,
// as its documentation advises for messages that come and go. Its proto2 form is used, which tests no text for UTF-8.

#include <google/protobuf/arena.h>
#include <messages.pb.h>

#include "works.h"

namespace bench {
namespace {

template <class Values>
struct GeneratedFor;
#define MD_BENCH_GENERATED(Values, FIELDS) \
  template <>                              \
  struct GeneratedFor<Values> {            \
    using Type = md_bench_pb::Values;      \
  };
MD_BENCH_MESSAGES(MD_BENCH_GENERATED)
template <class Values>
using Generated = typename GeneratedFor<Values>::Type;

// The generated classes' members differ by name only; what differs by kind is here.
#define MD_BENCH_SET_Char(name, value) message.set_##name(static_cast<unsigned char>(value))
#define MD_BENCH_SET_Int(name, value) message.set_##name(value)
#define MD_BENCH_SET_SInt(name, value) message.set_##name(value)
#define MD_BENCH_SET_Int64(name, value) message.set_##name(value)
#define MD_BENCH_SET_Float(name, value) message.set_##name(value)
#define MD_BENCH_SET_Double(name, value) message.set_##name(value)
#define MD_BENCH_SET_String(name, value) message.set_##name((value).data(), (value).size())
#define MD_BENCH_SET_Buffer(name, value) message.set_##name((value).data(), (value).size())
#define MD_BENCH_SET_DateTime(name, value) message.set_##name(value)
#define MD_BENCH_SET_EpochNS(name, value) message.set_##name(value)

#define MD_BENCH_SET(name, Name, Kind, id, number)   \
  if (isPresent(values.name)) {                      \
    MD_BENCH_SET_##Kind(name, valueOf(values.name)); \
  }
#define MD_BENCH_GET(name, Name, Kind, id, number)                              \
  if (!kIsSparse<std::decay_t<decltype(out)>> || message.has_##name()) {        \
    out.name = static_cast<kind::Kind::Type>(kind::Kind::Type(message.name())); \
  }
#define MD_BENCH_DEFINE(Values, FIELDS)                                               \
  void set(Generated<Values>& message, const Values& values) { FIELDS(MD_BENCH_SET) } \
  void get(const Generated<Values>& message, Values& out) { FIELDS(MD_BENCH_GET) }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

/// What build, parse and read are for a message wherever it lives.
template <class Values>
class Operations {
 public:
  Operations(Generated<Values>& message, std::vector<std::uint8_t>& bytes) : m_message(message), m_bytes(bytes) {}

  Bytes build(const Values& values) {
    set(m_message, values);
    return write();
  }
  bool parse(Bytes bytes) { return m_message.ParseFromArray(bytes.data, static_cast<int>(bytes.size)); }
  bool read(Values& out) const {
    get(m_message, out);
    return true;
  }
  bool readTwo(double& bid, double& ask) const {
    bid = m_message.bid();
    ask = m_message.ask();
    return true;
  }
  Bytes update(const Values& values) {
    m_message.set_bid(values.bid);
    m_message.set_ask(values.ask);
    m_message.set_volume(values.volume);
    m_message.set_seq(values.seq);
    return write();
  }

 private:
  Bytes write() {
    const std::size_t size = m_message.ByteSizeLong();
    m_message.SerializeWithCachedSizesToArray(m_bytes.data());
    return {m_bytes.data(), size};
  }

  Generated<Values>& m_message;
  std::vector<std::uint8_t>& m_bytes;
};

struct Protobuf : SubjectDefaults<Protobuf> {
  template <class Values>
  struct Context {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(16384);
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context) : m_operations(m_message, context.bytes) {}

    void clear() { m_message.Clear(); }
    Bytes build(const Values& values) { return m_operations.build(values); }
    bool parse(Bytes bytes) { return m_operations.parse(bytes); }
    bool read(Values& out) const { return m_operations.read(out); }
    bool readTwo(double& bid, double& ask) const { return m_operations.readTwo(bid, ask); }
    Bytes update(const Values& values) { return m_operations.update(values); }

   private:
    Generated<Values> m_message;
    Operations<Values> m_operations;
  };
};

struct ProtobufArena : SubjectDefaults<ProtobufArena> {
  static constexpr Coverage kCoverage{"Q", true, false, true, false, true, true, false};

  template <class Values>
  struct Context : Protobuf::Context<Values> {
    std::vector<char> block = std::vector<char>(65536);
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context)
        : m_arena(context.block.data(), context.block.size()),
          m_operations(*google::protobuf::Arena::CreateMessage<Generated<Values>>(&m_arena), context.bytes) {}

    Bytes build(const Values& values) { return m_operations.build(values); }
    bool parse(Bytes bytes) { return m_operations.parse(bytes); }
    bool read(Values& out) const { return m_operations.read(out); }
    bool readTwo(double& bid, double& ask) const { return m_operations.readTwo(bid, ask); }

   private:
    google::protobuf::Arena m_arena;
    Operations<Values> m_operations;
  };
};

const bool kAreRegistered =
    registerSubject<Protobuf>("protobuf") && registerSubject<ProtobufArena>("protobuf on an arena");

}  // namespace
}  // namespace bench
