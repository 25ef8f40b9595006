// A last-value cache: one message per symbol, into which partial updates are written where they stand. A snapshot is
// that message's bytes.
//
//   last_value_cache FILE     such as data/updates.txt
//
// The file has a line for each thing that happens: a message of any encoding in hex, an update, or "?" and a symbol,
// the question of somebody who joins late. At the end the whole cache is printed. Run it where etc/field_map.txt is
// found: in the repository's root, or with CONFIG_PATH naming the folder.

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <md/md_itermap.h>
#include <md/md_message.h>
#include <md/md_mint.h>
#include <md/md_msgt.h>

namespace {

/// Parses bytes of any encoding into a message kept for it, where MD_Message::createFromBytes() makes a new one.
class Parser {
 public:
  /// @return null when no encoding begins with the first byte; else the message, good until the next call
  const MD::MD_Message* parse(const std::vector<std::uint8_t>& bytes) {
    MD::MD_Message* const message = messageOf(bytes.empty() ? 0 : bytes[0]);
    if (message != nullptr) {
      message->setBinaryImpl(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }
    return message;
  }

 private:
  MD::MD_Message* messageOf(std::uint8_t code) {
    switch (code) {
      case 1:
        return &m_iterMap;
      case 6:
        return &m_mInt;
      case 70:
        return &m_msgT;
      default:
        return nullptr;
    }
  }

  MD::mInt m_mInt;
  MD::IterMap m_iterMap;
  MD::MsgT m_msgT;
};

/// Once every symbol, and every field of it, has been seen, an update allocates nothing. The dictionary is not to be
/// reloaded while there is a cache: the kept messages' fields are found by the places that it gave them.
class LastValueCache {
 public:
  explicit LastValueCache(std::uint16_t symbolId) : m_symbolId(symbolId) {}

  /// Takes over the fields of `update`: those that are kept change, others are added.
  /// @param[in,out] refusedFields  grows by the number of fields that cannot be read
  /// @return false when the symbol is absent
  bool apply(const MD::MD_Message& update, std::uint64_t& refusedFields) {
    MD::MD_Message::String symbol;
    if (!update.get(m_symbolId, symbol)) {
      return false;
    }
    m_key.assign(symbol.data, symbol.length);
    MD::IterMap& kept = m_messages[m_key];  // made in its place when the symbol is new
    update.get_field_ids(m_ids);
    for (const std::uint16_t id : m_ids) {
      refusedFields += copyField(update, id, kept) ? 0U : 1U;
    }
    return true;
  }

  /// @return null for a symbol that was never seen; else the message, good until the symbol's next update
  const MD::MD_Message* snapshot(const std::string& symbol) const {
    const auto found = m_messages.find(symbol);
    return found != m_messages.end() ? &found->second : nullptr;
  }

  std::vector<std::string> symbols() const {
    std::vector<std::string> names;
    for (const auto& entry : m_messages) {
      names.push_back(entry.first);
    }
    std::sort(names.begin(), names.end());
    return names;
  }

 private:
  template <class T>
  static bool copyAs(const MD::MD_Message& from, std::uint16_t id, MD::IterMap& to) {
    T value{};
    return from.get(id, value) && to.update(id, value);
  }

  /// By type, where an MD_Variant would allocate for a string and copyMsg() ends the process for a field that cannot be
  /// read. @return false for such a field, and for one of a type that messages do not carry
  static bool copyField(const MD::MD_Message& from, std::uint16_t id, MD::IterMap& to) {
    switch (MD::MD_FieldMap::instance().packed(id).type) {
      case MD::DATATYPES::CHAR:
        return copyAs<char>(from, id, to);
      case MD::DATATYPES::INT:
        return copyAs<std::int32_t>(from, id, to);
      case MD::DATATYPES::INT64:
        return copyAs<std::int64_t>(from, id, to);
      case MD::DATATYPES::FLOAT:
        return copyAs<float>(from, id, to);
      case MD::DATATYPES::DOUBLE:
        return copyAs<double>(from, id, to);
      case MD::DATATYPES::STRING:  // of another length than before it moves to the message's end
        return copyAs<MD::MD_Message::String>(from, id, to);
      case MD::DATATYPES::BUFFER:
        return copyAs<MD::MD_Message::Buffer>(from, id, to);
      case MD::DATATYPES::DATETIME:
        return copyAs<MD::MD_DateTime>(from, id, to);
      case MD::DATATYPES::EPOCH_NSEC:
        return copyAs<MD::MD_EpochNS>(from, id, to);
      default:
        return false;
    }
  }

  std::uint16_t m_symbolId;
  // Whatever the updates' encodings are: numbers have one width in an IterMap, so that they are overwritten in place,
  // and strings may have any length. A message is not moved by the container, since each has a node of its own.
  std::unordered_map<std::string, MD::IterMap> m_messages;
  // Kept for their memory.
  std::string m_key;
  std::vector<std::uint16_t> m_ids;
};

bool fromHex(std::string_view line, std::vector<std::uint8_t>& bytes) {
  bytes.clear();
  for (std::size_t i = 0; i + 1 < line.size(); i += 2) {
    std::uint8_t byte = 0;
    const auto [end, error] = std::from_chars(line.data() + i, line.data() + i + 2, byte, 16);
    if (error != std::errc() || end != line.data() + i + 2) {
      return false;
    }
    bytes.push_back(byte);
  }
  return line.size() % 2 == 0;
}

void printHex(const MD::MD_Message& message) {
  constexpr char kDigits[] = "0123456789abcdef";
  const std::uint8_t* const bytes = message.getBinary();
  std::string text;
  for (std::uint32_t i = 0; i < message.getSizeImpl(); ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  std::cout << text << '\n';
}

void answer(const LastValueCache& cache, const std::string& symbol) {
  std::cout << "snapshot of " << symbol << ": ";
  if (const MD::MD_Message* const message = cache.snapshot(symbol)) {
    printHex(*message);
  } else {
    std::cout << "never seen\n";
  }
}

/// @return false when a line is neither a message in hex nor a question, and when reading or writing fails
bool run(std::istream& file) {
  LastValueCache cache(MD::MD_FieldMap::instance().nameToId("SYMBOL"));
  Parser parser;
  std::uint64_t applied = 0;
  std::uint64_t foreign = 0;
  std::uint64_t withoutSymbol = 0;
  std::uint64_t refusedFields = 0;
  std::uint64_t lineNumber = 0;
  std::vector<std::uint8_t> bytes;
  for (std::string line; std::getline(file, line);) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (line.rfind("? ", 0) == 0) {
      answer(cache, line.substr(2));
    } else if (!fromHex(line, bytes)) {
      std::cerr << "last_value_cache: line " << lineNumber << " is neither hex nor a question\n";
      return false;
    } else if (const MD::MD_Message* const update = parser.parse(bytes); update == nullptr) {
      ++foreign;
    } else {
      ++(cache.apply(*update, refusedFields) ? applied : withoutSymbol);
    }
  }
  if (file.bad()) {
    std::cerr << "last_value_cache: cannot read on\n";
    return false;
  }
  std::cout << applied << " updates, " << refusedFields << " fields of them refused; left out: " << foreign
            << " of no encoding, " << withoutSymbol << " without a symbol\n";
  for (const std::string& symbol : cache.symbols()) {
    std::cout << '\n' << *cache.snapshot(symbol);
  }
  if (!std::cout.flush()) {
    std::cerr << "last_value_cache: cannot write\n";
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: last_value_cache FILE\n";
    return 2;
  }
  const char* const path = argv[1];
  std::ifstream file(path);
  if (!file) {
    std::cerr << "last_value_cache: cannot read " << path << '\n';
    return 2;
  }
  try {
    return run(file) ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << "last_value_cache: " << error.what() << "; is field_map.txt found?\n";
    return 1;
  }
}
