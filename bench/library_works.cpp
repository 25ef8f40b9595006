// Works that only the library does: erasing, copying between encodings, parsing garbage, loading a dictionary.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include <array>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "library.h"
#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace bench {
namespace {

template <class Encoding>
class QuoteWork {
 public:
  std::size_t count() const noexcept { return messages<Quote>().size(); }
  std::size_t bytesPerOperation() const noexcept { return m_encoded.averageBytes(); }

 protected:
  void parse(std::size_t i) {
    const Bytes bytes = m_encoded[i];
    m_message.setBinaryImpl(bytes.data, static_cast<std::uint32_t>(bytes.size));
  }

  const Encoded<Library<Encoding>, Quote>& m_encoded = Encoded<Library<Encoding>, Quote>::instance();
  Encoding m_message;
};

/// What the next work does before it erases.
template <class Encoding>
class ParseOnly : public QuoteWork<Encoding> {
 public:
  void operator()(std::size_t i) {
    this->parse(i);
    benchmark::DoNotOptimize(this->m_message.getBinary());
    benchmark::ClobberMemory();
  }
};

template <class Encoding>
class ParseAndEraseFour : public QuoteWork<Encoding> {
 public:
  ParseAndEraseFour() {
    (*this)(0);
    bool isGood = this->m_message.fieldCount() == kFieldCount<Quote> - m_ids.size();
    for (const std::uint16_t id : m_ids) {
      isGood = isGood && !this->m_message.existsImpl(id);
    }
    double ask = 0;
    if (!isGood || !this->m_message.get(kAsk, ask) || ask != messages<Quote>()[0].ask) {
      failCheck(typeid(Encoding).name(), "erase four", "the message");
    }
  }

  void operator()(std::size_t i) {
    this->parse(i);
    bool isGood = this->m_message.eraseArrayImpl(m_ids);
    benchmark::DoNotOptimize(isGood);
    benchmark::DoNotOptimize(this->m_message.getBinary());
    benchmark::ClobberMemory();
  }

 private:
  const std::vector<std::uint16_t> m_ids = {3, 6, 10, 14};
};

template <class From, class To>
class Copy : public QuoteWork<From> {
 public:
  Copy() {
    for (std::size_t i = 0; i < this->count(); ++i) {
      const Bytes bytes = this->m_encoded[i];
      m_from.push_back(std::make_unique<From>());
      m_from.back()->setBinaryImpl(bytes.data, static_cast<std::uint32_t>(bytes.size));
      (*this)(i);
      Quote actual{};
      LibraryFields<OwnIds, To>::read(m_to, actual);
      expectSame<Quote, Library<To>>(messages<Quote>()[i], actual, "copy");
    }
  }

  void operator()(std::size_t i) {
    m_to.clearImpl();
    m_to.copyMsg(*m_from[i]);
    benchmark::DoNotOptimize(m_to.getBinary());
    benchmark::ClobberMemory();
  }

 private:
  std::vector<std::unique_ptr<From>> m_from;
  To m_to;
};

// Garbage -------------------------------------------------------------------------------------------------------------

enum class Garbage {
  Random,   ///< random bytes
  Zeros,    ///< unknown records as short as can be
  Between,  ///< a few of those before each good quote, so that all that is kept has to move
};

template <class Encoding>
std::vector<std::uint8_t> makeGarbage(Garbage garbage, std::size_t sizeBytes) {
  const auto& quotes = Encoded<Library<Encoding>, Quote>::instance();
  const std::size_t headerBytes = Encoding().getSizeImpl();
  std::vector<std::uint8_t> bytes(quotes[0].data, quotes[0].data + headerBytes);
  std::mt19937_64 random(9);
  for (std::size_t i = 0; bytes.size() < sizeBytes; ++i) {
    if (garbage == Garbage::Random) {
      bytes.push_back(static_cast<std::uint8_t>(random()));
      continue;
    }
    // Whole records in all three encodings, whose shortest are of 2, 3 and 8 bytes.
    bytes.resize(bytes.size() + 24);
    if (garbage == Garbage::Between) {
      const Bytes quote = quotes[i % messages<Quote>().size()];
      bytes.insert(bytes.end(), quote.data + headerBytes, quote.data + quote.size);
    }
  }
  return bytes;
}

/// The first hundred unknown records are reported on standard error; those are over before anything is measured.
template <class Encoding>
void useUpReportsOf() {
  Encoding message;
  const std::vector<std::uint8_t> zeros(8192);
  message.setBinaryImpl(zeros.data(), static_cast<std::uint32_t>(zeros.size()));
}

void useUpReports() {
  static bool isDone = false;
  if (isDone) {
    return;
  }
  isDone = true;
  std::fflush(stderr);
  const int saved = dup(STDERR_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  dup2(nowhere, STDERR_FILENO);
  useUpReportsOf<MD::mInt>();
  useUpReportsOf<MD::IterMap>();
  useUpReportsOf<MD::MsgT>();
  std::fflush(stderr);
  dup2(saved, STDERR_FILENO);
  close(nowhere);
  close(saved);
}

template <class Encoding, Garbage garbage, std::size_t sizeBytes>
class ParseGarbage {
 public:
  ParseGarbage() {
    useUpReports();
    (*this)(0);
    // What is left is fields of the dictionary, which parse again to the same bytes.
    const std::vector<std::uint8_t> left(m_message.getBinary(), m_message.getBinary() + m_message.getSizeImpl());
    Encoding again;
    again.setBinaryImpl(left.data(), static_cast<std::uint32_t>(left.size()));
    if (left.size() > m_bytes.size() || again.getSizeImpl() != left.size() ||
        std::memcmp(again.getBinary(), left.data(), left.size()) != 0) {
      failCheck(typeid(Encoding).name(), "parse garbage", "what is left");
    }
  }

  std::size_t count() const noexcept { return 1; }
  std::size_t bytesPerOperation() const noexcept { return m_bytes.size(); }

  void operator()(std::size_t) {
    bool isGood = m_message.setBinaryImpl(m_bytes.data(), static_cast<std::uint32_t>(m_bytes.size()));
    benchmark::DoNotOptimize(isGood);
    benchmark::ClobberMemory();
  }

 private:
  const std::vector<std::uint8_t> m_bytes = makeGarbage<Encoding>(garbage, sizeBytes);
  Encoding m_message;
};

// Dictionaries --------------------------------------------------------------------------------------------------------

/// A dictionary file of `Rows` fields, each id once, in no order.
template <std::size_t Rows>
const std::string& definitions() {
  static const std::string made = [] {
    constexpr const char* kTypes[] = {"INT", "DOUBLE", "STRING", "INT64", "CHAR", "EPOCH_NSEC", "DATETIME", "FLOAT"};
    std::ostringstream text;
    for (std::size_t i = 1; i <= Rows; ++i) {
      const std::size_t id = i * 40'503 % 65'536;
      text << "FIELD_NAME_" << id << ' ' << id << ' ' << kTypes[i % std::size(kTypes)] << '\n';
    }
    return text.str();
  }();
  return made;
}

template <std::size_t Rows>
class TextWork {
 public:
  std::size_t count() const noexcept { return 1; }
  std::size_t bytesPerOperation() const noexcept { return definitions<Rows>().size(); }
};

/// Loads the dictionary.
template <std::size_t Rows>
class LoadDictionary : public TextWork<Rows> {
 public:
  ~LoadDictionary() { forgetDictionary(); }

  void operator()(std::size_t) {
    std::istringstream text(definitions<Rows>());
    MD::MD_FieldMap::reload_text(text, "definitions");
    benchmark::ClobberMemory();
  }
};

/// Reads the same tokens into a set of rows.
template <std::size_t Rows>
class LoadSet : public TextWork<Rows> {
 public:
  void operator()(std::size_t) {
    struct Row {
      std::uint16_t id;
      std::string name;
      std::string type;
      bool operator<(const Row& other) const noexcept { return id < other.id; }
    };
    std::istringstream text(definitions<Rows>());
    std::set<Row> rows;
    Row row;
    while (text >> row.name >> row.id >> row.type) {
      rows.insert(std::move(row));
    }
    benchmark::DoNotOptimize(rows.size());
  }
};

template <std::size_t Rows>
void registerLoads(const std::string& label) {
  addWork<LoadDictionary<Rows>, Dictionary::Any>("load/" + label + "/-/dictionary");
  addWork<LoadSet<Rows>, Dictionary::Any>("load/" + label + "/-/bare loop into a set");
}

template <class Encoding, Garbage garbage>
void registerGarbage(const std::string& name) {
  constexpr std::size_t kKiB = 1024;
  addWork<ParseGarbage<Encoding, garbage, 64 * kKiB>, Dictionary::Small>("W9/64 KiB/" + name);
  addWork<ParseGarbage<Encoding, garbage, 1024 * kKiB>, Dictionary::Small>("W9/1 MiB/" + name);
  addWork<ParseGarbage<Encoding, garbage, 4096 * kKiB>, Dictionary::Small>("W9/4 MiB/" + name);
}

template <class Encoding, class Other, class Another>
void registerEncoding(const std::string& name, const std::string& other, const std::string& another) {
  addWork<ParseOnly<Encoding>, Dictionary::Small>("W7/Q/parse only/" + name);
  addWork<ParseAndEraseFour<Encoding>, Dictionary::Small>("W7/Q/parse and erase 4/" + name);
  addWork<Copy<Encoding, Other>, Dictionary::Small>("W8/Q/to " + other + "/" + name);
  addWork<Copy<Encoding, Another>, Dictionary::Small>("W8/Q/to " + another + "/" + name);
  registerGarbage<Encoding, Garbage::Random>("random/" + name);
  registerGarbage<Encoding, Garbage::Zeros>("shortest/" + name);
  registerGarbage<Encoding, Garbage::Between>("between/" + name);
}

bool registerAll() {
  registerEncoding<MD::mInt, MD::IterMap, MD::MsgT>("mInt", "IterMap", "MsgT");
  registerEncoding<MD::IterMap, MD::mInt, MD::MsgT>("IterMap", "mInt", "MsgT");
  registerEncoding<MD::MsgT, MD::mInt, MD::IterMap>("MsgT", "mInt", "IterMap");
  registerLoads<6'000>("6000 rows");
  registerLoads<60'000>("60000 rows");
  return true;
}

const bool kAreRegistered = registerAll();

}  // namespace
}  // namespace bench
