// Protocol Buffers without generated classes: the message's description is data, as the library's dictionary is. The
// descriptors of the fields are looked up once and kept by number.

#include <google/protobuf/descriptor.h>
#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>
#include <messages.pb.h>

#include "works.h"

namespace bench {
namespace {

namespace pb = google::protobuf;

/// The messages' descriptions, in a pool of their own.
const pb::FileDescriptor* descriptions() {
  static pb::DescriptorPool pool;
  static const pb::FileDescriptor* const file = [] {
    pb::FileDescriptorProto description;
    md_bench_pb::Quote::descriptor()->file()->CopyTo(&description);
    return pool.BuildFile(description);
  }();
  return file;
}

struct DynamicMessages : SubjectDefaults<DynamicMessages> {
  template <class Values>
  struct Context {
    Context() {
      const pb::Descriptor* type = descriptions()->FindMessageTypeByName(nameOf(static_cast<Values*>(nullptr)));
      prototype = factory.GetPrototype(type);
      reflection = prototype->GetReflection();
      fields.resize(kFieldCount<Values> + 1);
      for (int i = 0; i < type->field_count(); ++i) {
        fields[static_cast<std::size_t>(type->field(i)->number())] = type->field(i);
      }
    }

    pb::DynamicMessageFactory factory;
    const pb::Message* prototype;
    const pb::Reflection* reflection;
    std::vector<const pb::FieldDescriptor*> fields;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(16384);
    std::string text;
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context) : m_context(context), m_message(context.prototype->New()) {}

    void clear() { m_message->Clear(); }
    Bytes build(const Values& values);
    bool parse(Bytes bytes) { return m_message->ParseFromArray(bytes.data, static_cast<int>(bytes.size)); }
    bool read(Values& out) const;
    bool readTwo(double& bid, double& ask) const {
      bid = get<kind::Double>(kBid);
      ask = get<kind::Double>(kAsk);
      return true;
    }
    Bytes update(const Values& values) {
      set<kind::Double>(kBid, values.bid);
      set<kind::Double>(kAsk, values.ask);
      set<kind::Int>(kVolume, values.volume);
      set<kind::Int64>(kSeq, values.seq);
      return write();
    }

   private:
    const pb::FieldDescriptor* field(unsigned number) const { return m_context.fields[number]; }

    template <class Kind>
    void set(unsigned number, typename Kind::Type value) {
      const pb::Reflection& reflection = *m_context.reflection;
      pb::Message* message = m_message.get();
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        reflection.SetUInt32(message, field(number), static_cast<unsigned char>(value));
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        reflection.SetInt32(message, field(number), value);
      } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
        reflection.SetInt64(message, field(number), value);
      } else if constexpr (std::is_same_v<Kind, kind::Float>) {
        reflection.SetFloat(message, field(number), value);
      } else if constexpr (std::is_same_v<Kind, kind::Double>) {
        reflection.SetDouble(message, field(number), value);
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        reflection.SetString(message, field(number), std::string(value));
      } else {
        reflection.SetUInt64(message, field(number), value);
      }
    }

    template <class Kind>
    typename Kind::Type get(unsigned number) const {
      const pb::Reflection& reflection = *m_context.reflection;
      const pb::Message& message = *m_message;
      if constexpr (std::is_same_v<Kind, kind::Char>) {
        return static_cast<char>(reflection.GetUInt32(message, field(number)));
      } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
        return reflection.GetInt32(message, field(number));
      } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
        return reflection.GetInt64(message, field(number));
      } else if constexpr (std::is_same_v<Kind, kind::Float>) {
        return reflection.GetFloat(message, field(number));
      } else if constexpr (std::is_same_v<Kind, kind::Double>) {
        return reflection.GetDouble(message, field(number));
      } else if constexpr (std::is_base_of_v<kind::String, Kind>) {
        return reflection.GetStringReference(message, field(number), &m_context.text);
      } else {
        return reflection.GetUInt64(message, field(number));
      }
    }

    template <class Kind, class T>
    void put(unsigned number, const T& value) {
      if (isPresent(value)) {
        set<Kind>(number, valueOf(value));
      }
    }
    template <class Kind, class T>
    void take(unsigned number, T& out) const {
      if (!kIsSparse<Values> || m_context.reflection->HasField(*m_message, field(number))) {
        out = get<Kind>(number);
      }
    }

    Bytes write() {
      const std::size_t size = m_message->ByteSizeLong();
      m_message->SerializeWithCachedSizesToArray(m_context.bytes.data());
      return {m_context.bytes.data(), size};
    }

    Context<Values>& m_context;
    std::unique_ptr<pb::Message> m_message;
  };

 private:
#define MD_BENCH_NAME(Values, FIELDS) \
  static const char* nameOf(Values*) { return #Values; }
  MD_BENCH_MESSAGES(MD_BENCH_NAME)
};

#define MD_BENCH_PUT(name, Name, Kind, id, number) put<kind::Kind>(number, values.name);
#define MD_BENCH_TAKE(name, Name, Kind, id, number) take<kind::Kind>(number, out.name);
#define MD_BENCH_DEFINE(Values, FIELDS)                                 \
  template <>                                                           \
  Bytes DynamicMessages::Message<Values>::build(const Values& values) { \
    FIELDS(MD_BENCH_PUT)                                                \
    return write();                                                     \
  }                                                                     \
  template <>                                                           \
  bool DynamicMessages::Message<Values>::read(Values& out) const {      \
    FIELDS(MD_BENCH_TAKE)                                               \
    return true;                                                        \
  }
MD_BENCH_MESSAGES(MD_BENCH_DEFINE)

const bool kIsRegistered = registerSubject<DynamicMessages>("protobuf DynamicMessage");

}  // namespace
}  // namespace bench
