// FlatBuffers, twice: reading in place, where the received bytes are trusted and stay where they are; and reading a
// copy of the bytes that has been verified, which is what the library's parsing gives. Only the first has forms of
// building and updating, which are the same for both.

#include <flatbuffers/flatbuffers.h>
#include <messages_generated.h>

#include "works.h"

namespace bench {
namespace {

template <class Values>
struct TableFor;
#define MD_BENCH_TABLE(Values, FIELDS)            \
  template <>                                     \
  struct TableFor<Values> {                       \
    using Type = md_bench_fb::Values;             \
    using Builder = md_bench_fb::Values##Builder; \
  };
MD_BENCH_MESSAGES(MD_BENCH_TABLE)
template <class Values>
using Table = typename TableFor<Values>::Type;

/// Texts by field number; they precede the table that refers to them.
template <class Values>
struct Offsets {
  flatbuffers::Offset<flatbuffers::String> texts[kFieldCount<Values> + 1];
  flatbuffers::Offset<flatbuffers::Vector<std::uint8_t>> buffers[kFieldCount<Values> + 1];
};

// What differs by kind: what is written before the table, what goes into the table, and how it is read.
#define MD_BENCH_BEFORE_Char(name, number)
#define MD_BENCH_BEFORE_Int(name, number)
#define MD_BENCH_BEFORE_SInt(name, number)
#define MD_BENCH_BEFORE_Int64(name, number)
#define MD_BENCH_BEFORE_Float(name, number)
#define MD_BENCH_BEFORE_Double(name, number)
#define MD_BENCH_BEFORE_String(name, number)                                                                \
  if (isPresent(values.name)) {                                                                             \
    offsets.texts[number] = builder.CreateString(valueOf(values.name).data(), valueOf(values.name).size()); \
  }
#define MD_BENCH_BEFORE_Buffer(name, number)                                                                         \
  offsets.buffers[number] = builder.CreateVector(reinterpret_cast<const std::uint8_t*>(valueOf(values.name).data()), \
                                                 valueOf(values.name).size());
#define MD_BENCH_BEFORE_DateTime(name, number)
#define MD_BENCH_BEFORE_EpochNS(name, number)

#define MD_BENCH_ADD_NUMBER(name, number)   \
  if (isPresent(values.name)) {             \
    table.add_##name(valueOf(values.name)); \
  }
#define MD_BENCH_ADD_Char(name, number)                               \
  if (isPresent(values.name)) {                                       \
    table.add_##name(static_cast<std::int8_t>(valueOf(values.name))); \
  }
#define MD_BENCH_ADD_Int(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_SInt(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_Int64(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_Float(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_Double(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_String(name, number) table.add_##name(offsets.texts[number]);
#define MD_BENCH_ADD_Buffer(name, number) table.add_##name(offsets.buffers[number]);
#define MD_BENCH_ADD_DateTime(name, number) MD_BENCH_ADD_NUMBER(name, number)
#define MD_BENCH_ADD_EpochNS(name, number) MD_BENCH_ADD_NUMBER(name, number)

template <class T>
T plain(T value) {
  return value;
}
char plain(std::int8_t value) { return static_cast<char>(value); }
std::string_view plain(const flatbuffers::String* text) {
  return text != nullptr ? std::string_view(text->c_str(), text->size()) : std::string_view();
}
std::string_view plain(const flatbuffers::Vector<std::uint8_t>* bytes) {
  return bytes != nullptr ? std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size())
                          : std::string_view();
}

#define MD_BENCH_BEFORE(name, Name, Kind, id, number) MD_BENCH_BEFORE_##Kind(name, number)
#define MD_BENCH_ADD(name, Name, Kind, id, number) MD_BENCH_ADD_##Kind(name, number)
#define MD_BENCH_TAKE(name, Name, Kind, id, number) takeDefaulted(out.name, kind::Kind::Type(plain(table.name())));
#define MD_BENCH_DEFINE(Values, FIELDS)                                       \
  void write(flatbuffers::FlatBufferBuilder& builder, const Values& values) { \
    Offsets<Values> offsets;                                                  \
    FIELDS(MD_BENCH_BEFORE)                                                   \
    TableFor<Values>::Builder table(builder);                                 \
    FIELDS(MD_BENCH_ADD)                                                      \
    builder.Finish(table.Finish());                                           \
  }                                                                           \
  void readTable(const Table<Values>& table, Values& out) { FIELDS(MD_BENCH_TAKE) }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

struct InPlace : SubjectDefaults<InPlace> {
  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    void clear() { m_builder.Clear(); }
    Bytes build(const Values& values) {
      write(m_builder, values);
      return bytes();
    }
    bool parse(Bytes bytes) {
      m_table = flatbuffers::GetRoot<Table<Values>>(bytes.data);
      return true;
    }
    bool read(Values& out) const {
      readTable(*m_table, out);
      return true;
    }
    bool readTwo(double& bid, double& ask) const {
      bid = m_table->bid();
      ask = m_table->ask();
      return true;
    }
    Bytes update(const Values& values) {
      auto* table = flatbuffers::GetMutableRoot<Table<Values>>(m_builder.GetBufferPointer());
      bool isGood = table->mutate_bid(values.bid);
      isGood &= table->mutate_ask(values.ask);
      isGood &= table->mutate_volume(values.volume);
      isGood &= table->mutate_seq(values.seq);
      benchmark::DoNotOptimize(isGood);
      return bytes();
    }

   protected:
    Bytes bytes() const { return {m_builder.GetBufferPointer(), m_builder.GetSize()}; }

    flatbuffers::FlatBufferBuilder m_builder;
    const Table<Values>* m_table = nullptr;
  };
};

struct Verified : SubjectDefaults<Verified> {
  using Encoder = InPlace;
  static constexpr Coverage kCoverage{"Q", true, true, false, false, true, true, false};

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    bool parse(Bytes bytes) {
      m_bytes.assign(bytes.data, bytes.data + bytes.size);
      flatbuffers::Verifier verifier(m_bytes.data(), m_bytes.size());
      m_table = flatbuffers::GetRoot<Table<Values>>(m_bytes.data());
      return verifier.VerifyBuffer<Table<Values>>(nullptr);
    }
    bool read(Values& out) const {
      readTable(*m_table, out);
      return true;
    }
    bool readTwo(double& bid, double& ask) const {
      bid = m_table->bid();
      ask = m_table->ask();
      return true;
    }

   private:
    std::vector<std::uint8_t> m_bytes;
    const Table<Values>* m_table = nullptr;
  };
};

const bool kAreRegistered =
    registerSubject<InPlace>("flatbuffers in place") && registerSubject<Verified>("flatbuffers copy and verify");

}  // namespace
}  // namespace bench
