// The C interface as a subject, by the functions of md_message_c.h alone. They have no way to reach the serialised
// bytes, so a build ends with their number; and a date-time can be requested but is not returned.

#include "md/md_message_c.h"

#include "library.h"
#include "md/md_mint.h"

namespace bench {
namespace {

/// A date-time handle for all additions.
class DateTime {
 public:
  DateTime() = default;
  ~DateTime() { MD_DateTime_delete(m_handle); }
  DateTime(const DateTime&) = delete;
  DateTime& operator=(const DateTime&) = delete;

  MD_DateTimeHandle get() const noexcept { return m_handle; }
  MD_DateTimeHandle set(std::uint64_t word) noexcept {
    char bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    MD_DateTime_deserialize(m_handle, bytes);
    return m_handle;
  }

 private:
  MD_DateTimeHandle m_handle = MD_DateTime_new_empty();
};

template <class Kind>
bool addOne(MD_MessageHandle message, DateTime& dateTime, std::uint16_t id, const typename Kind::Type& value) {
  if constexpr (std::is_same_v<Kind, kind::Char>) {
    return MD_Message_addChar(message, id, value);
  } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
    return MD_Message_addInt(message, id, value);
  } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
    return MD_Message_addInt64(message, id, value);
  } else if constexpr (std::is_same_v<Kind, kind::Float>) {
    return MD_Message_addFloat(message, id, value);
  } else if constexpr (std::is_same_v<Kind, kind::Double>) {
    return MD_Message_addDouble(message, id, value);
  } else if constexpr (std::is_same_v<Kind, kind::String>) {
    const MD_String text = {value.data(), static_cast<std::uint16_t>(value.size())};
    return MD_Message_addString(message, id, &text);
  } else if constexpr (std::is_same_v<Kind, kind::EpochNS>) {
    return MD_Message_addEpochNS(message, id, value);
  } else {
    return MD_Message_addDateTime(message, id, dateTime.set(value));
  }
}

template <class Kind>
bool readOne(MD_MessageHandle message, const DateTime& dateTime, std::uint16_t id, typename Kind::Type& out) {
  if constexpr (std::is_same_v<Kind, kind::Char>) {
    return MD_Message_getChar(message, id, &out);
  } else if constexpr (std::is_base_of_v<kind::Int, Kind>) {
    return MD_Message_getInt(message, id, &out);
  } else if constexpr (std::is_same_v<Kind, kind::Int64>) {
    return MD_Message_getInt64(message, id, &out);
  } else if constexpr (std::is_same_v<Kind, kind::Float>) {
    return MD_Message_getFloat(message, id, &out);
  } else if constexpr (std::is_same_v<Kind, kind::Double>) {
    return MD_Message_getDouble(message, id, &out);
  } else if constexpr (std::is_same_v<Kind, kind::String>) {
    MD_String text;
    const bool isThere = MD_Message_getString(message, id, &text);
    out = {text.data, text.length};
    return isThere;
  } else if constexpr (std::is_same_v<Kind, kind::EpochNS>) {
    return MD_Message_getEpochNS(message, id, &out);
  } else {
    return MD_Message_getDateTime(message, id, dateTime.get());
  }
}

struct CInterface : SubjectDefaults<CInterface> {
  using Encoder = Library<MD::mInt>;
  static constexpr Dictionary kDictionary = Dictionary::Small;
  static constexpr bool kReadsDateTimes = false;
  static constexpr bool kHandsOutBytes = false;
  static constexpr Coverage kCoverage{"Q", true, true, true, false, false, false, false};

  template <class Values>
  struct Context {
    DateTime dateTime;
  };

  template <class Values>
  class Message {
   public:
    explicit Message(Context<Values>& context) : m_dateTime(context.dateTime) {}
    ~Message() { MD_Message_delete(m_handle); }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    void clear() { MD_Message_clear(m_handle); }
    Bytes build(const Values& values) {
      if (m_handle == nullptr) {
        m_handle = MD_mInt_new();
      }
      bool isGood = true;
#define MD_BENCH_ADD(name, Name, Kind, id, number) isGood &= addOne<kind::Kind>(m_handle, m_dateTime, id, values.name);
      MD_BENCH_QUOTE_FIELDS(MD_BENCH_ADD)
#undef MD_BENCH_ADD
      benchmark::DoNotOptimize(isGood);
      return {nullptr, MD_Message_getSize(m_handle)};
    }
    bool parse(Bytes bytes) {
      const auto size = static_cast<std::uint32_t>(bytes.size);
      if (m_handle != nullptr) {
        return MD_Message_setBinary(m_handle, bytes.data, size);
      }
      m_handle = MD_Message_createFromBytes(bytes.data, size);
      return true;
    }
    bool read(Values& out) const {
      bool isGood = true;
#define MD_BENCH_READ(name, Name, Kind, id, number) isGood &= readOne<kind::Kind>(m_handle, m_dateTime, id, out.name);
      MD_BENCH_QUOTE_FIELDS(MD_BENCH_READ)
#undef MD_BENCH_READ
      return isGood;
    }
    bool readTwo(double& bid, double& ask) const {
      return MD_Message_getDouble(m_handle, kBid, &bid) && MD_Message_getDouble(m_handle, kAsk, &ask);
    }

   private:
    DateTime& m_dateTime;
    MD_MessageHandle m_handle = nullptr;
  };
};

const bool kIsRegistered = registerSubject<CInterface>("C interface");

}  // namespace
}  // namespace bench
