// Cap'n Proto. A message is built anew each time, as its documentation asks for; the form "reused" gives the builder
// first memory of the caller's, which it leaves zeroed for the next. Reading is in place, with the reader's bounds
// checks.

#include <capnp/message.h>
#include <messages.capnp.h>

#include "works.h"

namespace bench {
namespace {

template <class Values>
struct StructFor;
#define MD_BENCH_STRUCT(Values, FIELDS) \
  template <>                           \
  struct StructFor<Values> {            \
    using Type = md_bench_cp::Values;   \
  };
MD_BENCH_MESSAGES(MD_BENCH_STRUCT)
template <class Values>
using Struct = typename StructFor<Values>::Type;

template <class Kind>
auto toCapnp(const typename Kind::Type& value) {
  if constexpr (std::is_same_v<Kind, kind::Buffer>) {
    return capnp::Data::Reader(reinterpret_cast<const kj::byte*>(value.data()), value.size());
  } else if constexpr (std::is_same_v<Kind, kind::Char>) {
    return static_cast<std::int8_t>(value);
  } else {
    return value;
  }
}

template <class T>
T plain(T value) {
  return value;
}
char plain(std::int8_t value) { return static_cast<char>(value); }
std::string_view plain(capnp::Text::Reader text) { return {text.begin(), text.size()}; }
std::string_view plain(capnp::Data::Reader bytes) {
  return {reinterpret_cast<const char*>(bytes.begin()), bytes.size()};
}

// A text ends with a NUL, for which a view need not have room: it is created by its length and filled.
#define MD_BENCH_SET_String(Name, value) \
  std::memcpy(root.init##Name(static_cast<unsigned>((value).size())).begin(), (value).data(), (value).size())
#define MD_BENCH_SET_Char(Name, value) root.set##Name(toCapnp<kind::Char>(value))
#define MD_BENCH_SET_Int(Name, value) root.set##Name(value)
#define MD_BENCH_SET_SInt(Name, value) root.set##Name(value)
#define MD_BENCH_SET_Int64(Name, value) root.set##Name(value)
#define MD_BENCH_SET_Float(Name, value) root.set##Name(value)
#define MD_BENCH_SET_Double(Name, value) root.set##Name(value)
#define MD_BENCH_SET_Buffer(Name, value) root.set##Name(toCapnp<kind::Buffer>(value))
#define MD_BENCH_SET_DateTime(Name, value) root.set##Name(value)
#define MD_BENCH_SET_EpochNS(Name, value) root.set##Name(value)

#define MD_BENCH_SET(name, Name, Kind, id, number)   \
  if (isPresent(values.name)) {                      \
    MD_BENCH_SET_##Kind(Name, valueOf(values.name)); \
  }
#define MD_BENCH_TAKE(name, Name, Kind, id, number) takeDefaulted(out.name, kind::Kind::Type(plain(root.get##Name())));
#define MD_BENCH_DEFINE(Values, FIELDS)                                                 \
  void set(Struct<Values>::Builder root, const Values& values) { FIELDS(MD_BENCH_SET) } \
  void get(Struct<Values>::Reader root, Values& out) { FIELDS(MD_BENCH_TAKE) }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

/// @tparam form  decides where a builder's memory comes from
template <Form form>
struct Capnproto : SubjectDefaults<Capnproto<form>> {
  static constexpr Coverage kCoverage{
      "Q", form == Form::Fresh, form == Form::Reused, true, form == Form::Reused, true, true, false};

  template <class Values>
  struct Context {
    std::vector<capnp::word> scratch = std::vector<capnp::word>(2048);
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context) : m_scratch(context.scratch) {}

    void clear() { m_builder.reset(); }
    Bytes build(const Values& values) {
      if constexpr (form == Form::Reused) {
        m_builder.emplace(kj::arrayPtr(m_scratch.data(), m_scratch.size()));
      } else {
        m_builder.emplace();
      }
      m_root = m_builder->template initRoot<Struct<Values>>();
      set(m_root, values);
      return bytes();
    }
    bool parse(Bytes bytes) {
      m_segments[0] = kj::arrayPtr(reinterpret_cast<const capnp::word*>(bytes.data), bytes.size / sizeof(capnp::word));
      m_reader.emplace(kj::arrayPtr(m_segments, 1));
      m_readerRoot = m_reader->template getRoot<Struct<Values>>();
      return true;
    }
    bool read(Values& out) const {
      get(m_readerRoot, out);
      return true;
    }
    bool readTwo(double& bid, double& ask) const {
      bid = m_readerRoot.getBid();
      ask = m_readerRoot.getAsk();
      return true;
    }
    Bytes update(const Values& values) {
      m_root.setBid(values.bid);
      m_root.setAsk(values.ask);
      m_root.setVolume(values.volume);
      m_root.setSeq(values.seq);
      return bytes();
    }

   private:
    /// The one segment that the message fits into.
    Bytes bytes() {
      const auto segments = m_builder->getSegmentsForOutput();
      if (segments.size() != 1) {
        failCheck("capnproto", "build", "the number of segments");
      }
      return {reinterpret_cast<const std::uint8_t*>(segments[0].begin()), segments[0].size() * sizeof(capnp::word)};
    }

    std::vector<capnp::word>& m_scratch;
    std::optional<capnp::MallocMessageBuilder> m_builder;
    typename Struct<Values>::Builder m_root{nullptr};
    kj::ArrayPtr<const capnp::word> m_segments[1];
    std::optional<capnp::SegmentArrayMessageReader> m_reader;
    typename Struct<Values>::Reader m_readerRoot;
  };
};

const bool kAreRegistered =
    registerSubject<Capnproto<Form::Fresh>>("capnproto") && registerSubject<Capnproto<Form::Reused>>("capnproto");

}  // namespace
}  // namespace bench
