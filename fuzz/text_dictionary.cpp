// Text dictionary files: the rows are those of an independent reader, every lookup leads to them, messages take the
// fields, the C interface loads the same rows, and as an XML file they load to the same dictionary.
#include <cstdint>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "dictionary_properties.h"
#include "fuzz_target.h"
#include "md/md_fieldmap.h"
#include "md/md_message_c_ext.h"

namespace {

using MD::fuzz::Row;

/// Reads entries as the format says, a character at a time.
class Reader {
 public:
  explicit Reader(const std::string& text) : m_text(text) {}

  std::vector<Row> rows() {
    std::vector<Row> rows;
    std::set<std::uint16_t> ids;
    std::uint16_t compact = 0;
    std::string name;
    std::uint16_t id = 0;
    std::string type;
    while (token(name) && number(id) && token(type)) {
      const int code = MD::fuzz::typeCode(type);
      if (code < 0) {
        continue;
      }
      if (ids.insert(id).second) {
        rows.push_back({id, compact, static_cast<std::uint8_t>(code), name});
      }
      ++compact;
    }
    return rows;
  }

 private:
  static bool isSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
  static bool isDigit(char c) { return c >= '0' && c <= '9'; }

  bool isAtEnd() const { return m_next == m_text.size(); }
  void skipSpace() {
    while (!isAtEnd() && isSpace(m_text[m_next])) {
      ++m_next;
    }
  }

  bool token(std::string& out) {
    skipSpace();
    out.clear();
    while (!isAtEnd() && !isSpace(m_text[m_next])) {
      out += m_text[m_next++];
    }
    return !out.empty();
  }

  /// Digits with or without a sign, at most 65535; a negative number counts back from 65536, as streams read it.
  bool number(std::uint16_t& out) {
    skipSpace();
    const bool isNegative = !isAtEnd() && m_text[m_next] == '-';
    if (isNegative || (!isAtEnd() && m_text[m_next] == '+')) {
      ++m_next;
    }
    bool hasDigits = false;
    std::uint32_t value = 0;
    for (; !isAtEnd() && isDigit(m_text[m_next]); ++m_next) {
      hasDigits = true;
      value = std::min(value * 10 + static_cast<std::uint32_t>(m_text[m_next] - '0'), std::uint32_t{65536});
    }
    out = static_cast<std::uint16_t>(isNegative ? 65536 - value : value);
    return hasDigits && value <= 65535;
  }

  const std::string& m_text;
  std::size_t m_next = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  std::istringstream stream(text);
  MD::MD_FieldMap::reload_text(stream, "input");
  const std::vector<Row> rows = MD::fuzz::loadedRows();
  MD_SAME(MD::fuzz::differenceOf(Reader(text).rows(), rows));
  MD::fuzz::checkLookUps();
  MD::fuzz::checkMessages();
  char error[] = "untouched";
  MD_PROPERTY(MD_FieldMap_reload_text_memory(text.data(), text.size(), error, sizeof error) && *error == '\0',
              "the C interface does not load");
  MD_SAME(MD::fuzz::differenceOf(rows, MD::fuzz::loadedRows()));
  if (MD::fuzz::haveSimpleNames(rows)) {
    const MD::fuzz::MemoryFile file(MD::fuzz::asXml(rows));
    MD::MD_FieldMap::reload_xml(file.path());
    MD_SAME(MD::fuzz::differenceOf(MD::fuzz::renumbered(rows), MD::fuzz::loadedRows()));
  }
  return 0;
}
