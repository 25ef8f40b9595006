// A last-value cache with conflation: one message holds the newest state of each symbol, and at every tick one delta
// per changed symbol is sent, regardless of the number of updates. A subscriber applies the deltas, including removed
// fields, and thus has the same states.
//
//   last_value_cache FILE     such as data/updates.txt
//
// The file has one line per event: an update (a message of any encoding in hex), "tick", or "?" and a symbol (the
// request of a subscriber that joins late). At the end the states of the subscriber are printed. Run it where
// etc/field_map.txt is found: in the repository's root, or with CONFIG_PATH naming the folder.

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <md/md_delta.h>
#include <md/md_escape.h>
#include <md/md_itermap.h>
#include <md/md_message.h>

namespace {

// Fields of etc/field_map.txt.
constexpr MD::Field<MD::MD_Message::String> SYMBOL{1};
constexpr MD::Field<char> TRADING_STATUS{19};
constexpr MD::Field<double> BID{22};
constexpr MD::Field<double> ASK{23};
constexpr MD::Field<double> BID_SIZE{24};
constexpr MD::Field<double> ASK_SIZE{25};
constexpr MD::Field<MD::MD_Message::Buffer> VENUE_EXTENSION{40000};

/// Deltas of this program carry the ids of removed fields in VENUE_EXTENSION, and the symbol in any case.
MD::Delta makeDelta() { return MD::Delta(VENUE_EXTENSION, {SYMBOL.id()}); }

/// One message for each symbol. Numbers have one width in an IterMap, so that they are updated in place, and strings
/// may have any length.
using States = std::map<std::string, MD::IterMap, std::less<>>;

void printHex(const MD::MD_Message& message) {
  std::cout << MD::MD_Message::Buffer(message.data(), static_cast<std::uint16_t>(message.size())) << '\n';
}

class Subscriber {
 public:
  /// @return false when the bytes are not a delta of this program
  bool onDelta(const std::vector<std::uint8_t>& bytes) {
    const auto delta = MD::MD_Message::createFromBytes(bytes);
    const auto symbol = delta != nullptr ? delta->get(SYMBOL) : std::nullopt;
    return symbol.has_value() && m_delta.apply(*delta, m_states[std::string(*symbol)]);
  }

  const States& states() const { return m_states; }

 private:
  MD::Delta m_delta = makeDelta();
  States m_states;
};

class Publisher {
 public:
  /// Takes over the fields of `update`: those that are kept change, others are added.
  /// @return false when the symbol is absent
  bool onUpdate(const MD::MD_Message& update) {
    const auto symbol = update.get(SYMBOL);
    if (!symbol) {
      return false;
    }
    const auto changed = m_changed.emplace(*symbol).first;
    MD::IterMap& state = m_states[*changed];
    // Fields that cannot be read are listed; copyMsg() would end the process.
    m_refusedFields += copyReadable(update, state).size();
    ++m_updates;
    if (update.get(TRADING_STATUS) == 'H') {  // a halted instrument has no quotes
      for (const auto field : {BID, ASK, BID_SIZE, ASK_SIZE}) {
        state.erase(field);
      }
    }
    return true;
  }

  /// Sends what has changed since the last tick.
  void onTick(Subscriber& subscriber) {
    std::cout << "tick: " << m_updates << " updates in " << m_changed.size() << " deltas\n";
    m_updates = 0;
    for (const std::string& symbol : m_changed) {
      const MD::IterMap& state = m_states[symbol];
      MD::IterMap& sent = m_sent[symbol];
      if (!m_delta.diff(sent, state, m_message)) {
        throw std::runtime_error("no delta can be made for " + symbol);
      }
      std::cout << "  " << MD::escaped(symbol) << ": ";
      printHex(m_message);
      // Sent and received.
      if (!subscriber.onDelta({m_message.data(), m_message.data() + m_message.size()}) ||
          !m_delta.apply(m_message, sent)) {
        throw std::runtime_error("the delta for " + symbol + " cannot be applied");
      }
    }
    m_changed.clear();
  }

  /// @return null for a symbol that was never seen; else its newest state, valid until the next update
  const MD::MD_Message* snapshot(const std::string& symbol) const {
    const auto found = m_states.find(symbol);
    return found != m_states.end() ? &found->second : nullptr;
  }

  const States& states() const { return m_states; }
  std::uint64_t refusedFields() const { return m_refusedFields; }

 private:
  States m_states;
  States m_sent;  // as subscribers have them
  std::set<std::string> m_changed;
  MD::Delta m_delta = makeDelta();
  MD::IterMap m_message;
  std::uint64_t m_updates = 0;  // since the last tick
  std::uint64_t m_refusedFields = 0;
};

bool areSame(const States& a, const States& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](const auto& left, const auto& right) {
           return left.first == right.first && sameFields(left.second, right.second);
         });
}

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

void answer(const Publisher& publisher, const std::string& symbol) {
  std::cout << "snapshot of " << symbol << ": ";
  if (const MD::MD_Message* const message = publisher.snapshot(symbol)) {
    printHex(*message);
  } else {
    std::cout << "never seen\n";
  }
}

/// @return false when a line is none of those that the top of this file lists, and when reading or writing fails
bool run(std::istream& file) {
  Publisher publisher;
  Subscriber subscriber;
  std::uint64_t applied = 0;
  std::uint64_t foreign = 0;
  std::uint64_t withoutSymbol = 0;
  std::uint64_t lineNumber = 0;
  std::vector<std::uint8_t> bytes;
  for (std::string line; std::getline(file, line);) {
    ++lineNumber;
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    if (line == "tick") {
      publisher.onTick(subscriber);
    } else if (line.rfind("? ", 0) == 0) {
      answer(publisher, line.substr(2));
    } else if (!fromHex(line, bytes)) {
      std::cerr << "last_value_cache: line " << lineNumber << " is neither hex, a tick nor a question\n";
      return false;
    } else if (const auto update = MD::MD_Message::createFromBytes(bytes); update == nullptr) {
      ++foreign;
    } else {
      ++(publisher.onUpdate(*update) ? applied : withoutSymbol);
    }
  }
  if (file.bad()) {
    std::cerr << "last_value_cache: cannot read on\n";
    return false;
  }
  publisher.onTick(subscriber);
  std::cout << applied << " updates, " << publisher.refusedFields() << " of their fields refused; skipped: " << foreign
            << " unrecognised, " << withoutSymbol << " without a symbol\n"
            << "the subscriber has " << (areSame(publisher.states(), subscriber.states()) ? "the same" : "other")
            << " states:\n";
  for (const auto& [symbol, state] : subscriber.states()) {
    std::cout << '\n';
    print(std::cout, state);
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
    std::cerr << "last_value_cache: " << error.what() << '\n';
    return 1;
  }
}
