// Received messages read without a virtual call per field, fields peeked without a message, and the C interface with
// all fields in one call.

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <array>
#include <memory>
#include <string>
#include <utility>

#include "library.h"
#include "md/md_arrow.h"
#include "md/md_message_c_ext.h"
#include "md/md_mint.h"
#include "md/md_peek.h"
#include "md/md_receiver.h"
#include "md/md_visit.h"

namespace bench {
namespace {

constexpr Coverage kReceivedOnly{"Q", false, true, false, false, false, false, false};
constexpr Coverage kFreshReceivedOnly{"Q", true, false, false, false, false, false, false};

/// Reads through MD::visit().
class Visited {
 public:
  template <class Values>
  static bool read(const MD::MD_Message& message, Values& out) {
    return MD::visit(message, [&out](const auto& own) {
      return LibraryFields<OwnIds, std::decay_t<decltype(own)>>::read(own, out);
    });
  }
  static bool readTwo(const MD::MD_Message& message, double& bid, double& ask) {
    return MD::visit(message, [&](const auto& own) {
      return LibraryFields<OwnIds, std::decay_t<decltype(own)>>::readTwo(own, bid, ask);
    });
  }
};

struct Received : SubjectDefaults<Received> {
  using Encoder = Library<MD::mInt>;
  static constexpr Dictionary kDictionary = Dictionary::Small;
  static constexpr Coverage kCoverage = kReceivedOnly;

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    bool parse(Bytes bytes) {
      m_message = m_receiver.parse(bytes.data, static_cast<std::uint32_t>(bytes.size));
      return m_message != nullptr;
    }
    bool read(Values& out) const { return Visited::read(*m_message, out); }
    bool readTwo(double& bid, double& ask) const { return Visited::readTwo(*m_message, bid, ask); }

   private:
    MD::Receiver m_receiver;
    MD::MD_Message* m_message = nullptr;
  };
};

struct FactoryVisited : SubjectDefaults<FactoryVisited> {
  using Encoder = Library<MD::mInt>;
  static constexpr Dictionary kDictionary = Dictionary::Small;
  static constexpr Coverage kCoverage = kFreshReceivedOnly;

  template <class Values>
  class Message {
   public:
    template <class Context>
    explicit Message(Context&) {}

    bool parse(Bytes bytes) {
      m_message = MD::MD_Message::createFromBytes(bytes.data, static_cast<std::uint32_t>(bytes.size));
      return m_message != nullptr;
    }
    bool read(Values& out) const { return Visited::read(*m_message, out); }
    bool readTwo(double& bid, double& ask) const { return Visited::readTwo(*m_message, bid, ask); }

   private:
    std::unique_ptr<MD::MD_Message> m_message;
  };
};

const bool kAreSubjects = registerSubject<Received>("mInt by receiver and visit") &&
                          registerSubject<FactoryVisited>("mInt from the factory, visited");

// One field ----------------------------------------------------------------------------------------------------------

/// Reads one field of each quote by `Read`, which is called with the bytes and a double.
template <class Read>
class ReadOne {
 public:
  ReadOne() {
    for (std::size_t i = 0; i < count(); ++i) {
      double bid = 0;
      if (!m_read(m_encoded[i], bid) || bid != messages<Quote>()[i].bid) {
        failCheck(typeid(Read).name(), "read one", "the bid");
      }
    }
  }

  std::size_t count() const noexcept { return messages<Quote>().size(); }
  std::size_t bytesPerOperation() const noexcept { return m_encoded.averageBytes(); }

  void operator()(std::size_t i) {
    double bid = 0;
    bool isGood = m_read(m_encoded[i], bid);
    benchmark::DoNotOptimize(isGood);
    benchmark::DoNotOptimize(bid);
  }

 private:
  const Encoded<Library<MD::mInt>, Quote>& m_encoded = Encoded<Library<MD::mInt>, Quote>::instance();
  Read m_read;
};

std::uint32_t sizeOf(Bytes bytes) { return static_cast<std::uint32_t>(bytes.size); }

struct ParseAndGet {
  bool operator()(Bytes bytes, double& bid) {
    return message.setBinaryImpl(bytes.data, sizeOf(bytes)) && message.get(kBid, bid);
  }
  MD::mInt message;
};
struct Peek {
  bool operator()(Bytes bytes, double& bid) const { return MD::peek(bytes.data, sizeOf(bytes), kBid, bid); }
};
struct PeekFirst {
  bool operator()(Bytes bytes, double& bid) const { return MD::peekFirst(bytes.data, sizeOf(bytes), kBid, bid); }
};

/// The same with the bid as the second record.
template <class Read>
class ReadSecond {
 public:
  ReadSecond() {
    for (const Quote& values : messages<Quote>()) {
      MD::mInt message;
      message.add(kSeq, values.seq);
      message.add(kBid, values.bid);
      MD::mInt whole;
      LibraryFields<OwnIds, MD::mInt>::add(whole, values);
      for (const std::uint16_t id : {kSeq, kBid}) {
        whole.eraseImpl(id);
      }
      message.copyMsg(whole);
      m_encoded.emplace_back(message.getBinary(), message.getBinary() + message.getSizeImpl());
    }
    for (std::size_t i = 0; i < count(); ++i) {
      double bid = 0;
      if (!m_read(bytes(i), bid) || bid != messages<Quote>()[i].bid) {
        failCheck(typeid(Read).name(), "read second", "the bid");
      }
    }
  }

  std::size_t count() const noexcept { return m_encoded.size(); }
  std::size_t bytesPerOperation() const noexcept { return m_encoded.front().size(); }

  void operator()(std::size_t i) {
    double bid = 0;
    bool isGood = m_read(bytes(i), bid);
    benchmark::DoNotOptimize(isGood);
    benchmark::DoNotOptimize(bid);
  }

 private:
  Bytes bytes(std::size_t i) const { return {m_encoded[i].data(), m_encoded[i].size()}; }

  std::vector<std::vector<std::uint8_t>> m_encoded;
  Read m_read;
};

// Columns ------------------------------------------------------------------------------------------------------------

/// Appends sequence number, bid and ask of each quote to columns; complete batches are released.
class AppendThree {
 public:
  AppendThree() {
    ArrowArray batch;
    for (std::size_t i = 0; i < count(); ++i) {
      append(i);
    }
    if (m_columns.rows() != count() || !m_columns.exportBatch(&batch)) {
      failCheck("AppendThree", "append", "the rows");
    }
    const auto* const bids = static_cast<const double*>(batch.children[1]->buffers[1]);
    for (std::int64_t i = 0; i < batch.length; ++i) {
      if (bids[i] != messages<Quote>()[static_cast<std::size_t>(i)].bid) {
        failCheck("AppendThree", "append", "the bid");
      }
    }
    batch.release(&batch);
  }

  std::size_t count() const noexcept { return messages<Quote>().size(); }
  std::size_t bytesPerOperation() const noexcept { return m_encoded.averageBytes(); }

  void operator()(std::size_t i) {
    append(i);
    if (m_columns.completeBatches() != 0) {
      ArrowArray batch;
      if (m_columns.exportBatch(&batch)) {
        batch.release(&batch);
      }
    }
  }

 private:
  void append(std::size_t i) {
    bool isGood = m_columns.append(m_encoded[i].data, sizeOf(m_encoded[i]));
    benchmark::DoNotOptimize(isGood);
  }

  const Encoded<Library<MD::mInt>, Quote>& m_encoded = Encoded<Library<MD::mInt>, Quote>::instance();
  MD::ColumnBuilder m_columns{{kSeq, kBid, kAsk}};
};

// The C interface in bulk --------------------------------------------------------------------------------------------

constexpr std::size_t kSlotCount = 16;

/// Sixteen fields that C programs and C++ programs write and read alike.
struct Sixteen {
  std::array<std::uint16_t, kSlotCount> ids{};
  std::array<std::uint8_t, kSlotCount> types{};

  Sixteen() {
    std::size_t found = 0;
    for (const auto& field : MD::MD_FieldMap::instance()) {
      const bool isPlain =
          field.type == MD::DATATYPES::DOUBLE || field.type == MD::DATATYPES::INT64 || field.type == MD::DATATYPES::INT;
      if (isPlain && found < kSlotCount) {
        ids[found] = field.id;
        types[found++] = field.type;
      }
    }
    if (found != kSlotCount) {
      failCheck("C in bulk", "sixteen fields", "enough fields");
    }
  }
};

template <class Use>
bool forEachOf(const Sixteen& fields, Use use) {
  bool isGood = true;
  for (std::size_t i = 0; i < kSlotCount; ++i) {
    switch (fields.types[i]) {
      case MD::DATATYPES::INT:
        isGood &= use(fields.ids[i], std::int32_t(100000 + i));
        break;
      case MD::DATATYPES::INT64:
        isGood &= use(fields.ids[i], std::int64_t(100000 + i));
        break;
      default:
        isGood &= use(fields.ids[i], 100.25 + static_cast<double>(i));
    }
  }
  return isGood;
}

template <bool inBulk>
class SixteenFields {
 public:
  std::size_t count() const noexcept { return 1; }
  std::size_t bytesPerOperation() const noexcept { return m_own.getSizeImpl(); }

 protected:
  SixteenFields() {
    for (std::size_t i = 0; i < kSlotCount; ++i) {
      m_slots[i].id = m_fields.ids[i];
      m_slots[i].type = m_fields.types[i];
      switch (m_fields.types[i]) {
        case MD_TYPE_INT:
          m_slots[i].value.i = std::int32_t(100000 + i);
          break;
        case MD_TYPE_INT64:
          m_slots[i].value.l = std::int64_t(100000 + i);
          break;
        default:
          m_slots[i].value.d = 100.25 + static_cast<double>(i);
      }
    }
    if (!write() || !read()) {
      failCheck("C in bulk", "write and read", "sixteen fields");
    }
  }
  ~SixteenFields() { MD_Message_delete(m_handle); }

  bool write() {
    if constexpr (inBulk) {
      MD_Message_clear(m_handle);
      return MD_Message_writeFields(m_handle, m_slots.data(), kSlotCount, MD_WRITE_ADD) == kSlotCount;
    } else {
      m_own.clearImpl();
      return forEachOf(m_fields, [this](std::uint16_t id, auto value) { return m_own.add(id, value); });
    }
  }
  bool read() {
    if constexpr (inBulk) {
      return MD_Message_readFields(m_handle, m_slots.data(), kSlotCount) == kSlotCount;
    } else {
      return forEachOf(m_fields, [this](std::uint16_t id, auto value) {
        const bool isGood = m_own.get(id, value);
        benchmark::DoNotOptimize(value);
        return isGood;
      });
    }
  }

 private:
  Sixteen m_fields;
  MD::mInt m_own;
  MD_MessageHandle m_handle = MD_mInt_new();
  std::array<MD_FieldSlot, kSlotCount> m_slots{};
};

template <bool inBulk>
struct WriteSixteen : SixteenFields<inBulk> {
  void operator()(std::size_t) {
    bool isGood = this->write();
    benchmark::DoNotOptimize(isGood);
  }
};
template <bool inBulk>
struct ReadSixteen : SixteenFields<inBulk> {
  void operator()(std::size_t) {
    bool isGood = this->read();
    benchmark::DoNotOptimize(isGood);
  }
};

bool registerAll() {
  addWork<ReadOne<ParseAndGet>, Dictionary::Small>("one field/Q/parse and get/mInt");
  addWork<ReadOne<Peek>, Dictionary::Small>("one field/Q/peek/mInt");
  addWork<ReadOne<PeekFirst>, Dictionary::Small>("one field/Q/peekFirst/mInt");
  addWork<ReadSecond<ParseAndGet>, Dictionary::Small>("second record/Q/parse and get/mInt");
  addWork<ReadSecond<Peek>, Dictionary::Small>("second record/Q/peek/mInt");
  addWork<ReadSecond<PeekFirst>, Dictionary::Small>("second record/Q/peekFirst/mInt");
  addWork<AppendThree, Dictionary::Small>("three columns/Q/append/mInt");
  addWork<WriteSixteen<false>, Dictionary::Small>("16 fields/write/mInt");
  addWork<WriteSixteen<true>, Dictionary::Small>("16 fields/write/C in one call");
  addWork<ReadSixteen<false>, Dictionary::Small>("16 fields/read/mInt");
  addWork<ReadSixteen<true>, Dictionary::Small>("16 fields/read/C in one call");
  return true;
}

const bool kAreRegistered = registerAll();

}  // namespace
}  // namespace bench
