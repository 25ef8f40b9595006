/// @file
/// The process-wide dictionary of message fields. It owns its entries; iterators and references into it are valid until
/// the next reload or destroy(). Creation is thread-safe. Lookups take no lock, so reload only while no other thread
/// uses the dictionary and no filled message exists.
#ifndef MD_FIELDMAP_H
#define MD_FIELDMAP_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include <array>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "md/md_api.h"

namespace MD {

namespace FIELDS {

/// One dictionary entry. Entries are ordered by id alone.
struct field_rec {
  std::uint16_t id = 0;       ///< as on the wire
  std::uint16_t compact = 0;  ///< dense index, in file order, into every field index
  std::uint8_t type = 0;      ///< a `DATATYPES` code
  std::string name;           ///< as in the dictionary file

  /// By id.
  friend bool operator<(const field_rec& a, const field_rec& b) noexcept { return a.id < b.id; }
};

/// The parts of an entry that the encodings need: four bytes, so that a lookup by id is one array read.
struct packed_rec {
  std::uint16_t slot = 0;  ///< the dense index of the entry plus one; 0: no such field
  std::uint8_t type = 0;   ///< a `DATATYPES` code
  std::uint8_t zero = 0;   ///< completes the word that slotIf() reads

  /// Whether the dictionary contains the field.
  bool isKnown() const noexcept { return slot != 0; }

  /// The slot if the dictionary declares the type `wanted`, otherwise a number greater than every slot: one comparison
  /// with the number of slots tests both.
  MD_ALWAYS_INLINE std::uint32_t slotIf(std::uint8_t wanted) const noexcept {
    std::uint32_t word;
    static_assert(sizeof(packed_rec) == sizeof word);
    std::memcpy(&word, this, sizeof word);
    return word ^ std::uint32_t{wanted} << 16;
  }
};

}  // namespace FIELDS

/// The result of loading a text dictionary: the entries that were skipped, and those that look like a mistake.
struct LoadReport {
  /// One entry of the file.
  struct Problem {
    std::size_t line = 0;    ///< line number of the entry, from 1
    std::string entry;       ///< the name of the field as in the file
    std::string reason;      ///< the problem of the entry
    bool isSkipped = false;  ///< whether the entry was skipped
  };

  std::string source;             ///< the file, or the name passed for the text
  std::size_t fieldCount = 0;     ///< the fields of the dictionary after the load
  std::size_t problemCount = 0;   ///< all problems
  std::vector<Problem> problems;  ///< the first 1000 of them, in the order of the file

  /// Whether no entry was skipped and none looks like a mistake.
  bool isClean() const noexcept { return problemCount == 0; }
};

/// One line per problem: source, line number, field and reason, with names in the form of escaped().
MD_API std::string to_string(const LoadReport& report);

/// Maps field ids to names, type codes and dense indexes, and names to ids.
class MD_API MD_FieldMap {
 public:
  /// Refers to a `FIELDS::field_rec`.
  using const_iterator = std::set<FIELDS::field_rec>::const_iterator;

  /// The dictionary, created on the first call from the first dictionary file found on the configuration search path:
  /// "field_map.txt", "message/field_map.txt" (text), "FieldDefinition.xml"; empty if there is none.
  /// @throws std::runtime_error on the first call, if a file is found and cannot be loaded; the dictionary is then
  ///         empty
  static const MD_FieldMap& instance();

  /// Creates the dictionary from the XML file `path`.
  /// @return 0; -1 if there is already a dictionary (nothing is loaded); -2 if loading failed (the dictionary exists
  ///         and is empty)
  static int load_file(const std::string& path);

  /// Replaces the contents of the dictionary: from the configuration search path if `path` is empty, otherwise from the
  /// XML file `path`.
  /// @throws std::runtime_error "Unable to open file: " or "Failed to load field def file: " with the path; the
  ///         dictionary is then empty until a reload succeeds. The same applies to the four functions below. If a
  ///         reload is the first use of the dictionary, the file on the configuration search path is loaded first, with
  ///         its exceptions.
  static void reload(const std::string& path);
  /// Replaces the contents of the dictionary by those of an XML file; an empty path leaves it empty.
  static void reload_xml(const std::string& path);
  /// Replaces the contents of the dictionary by XML in memory or elsewhere, read to its end.
  /// @param name  replaces the path in error texts
  static void reload_xml(std::istream& xml, const std::string& name);
  /// Replaces the contents of the dictionary by those of a text file: entries of three tokens, name, id and type name.
  static void reload_text(const std::string& path);
  /// Replaces the contents of the dictionary by text in memory or elsewhere, in the format of reload_text().
  /// @param name  replaces the path in error texts
  static void reload_text(std::istream& text, const std::string& name);

  /// @{
  /// Replaces the dictionary by the entries of a text in memory, or of a text file, in the format of reload_text(), and
  /// reports the entries that were skipped. Does not search for a file on the configuration search path. `name` is the
  /// name of a text in memory in source(), the report and error texts.
  /// @throws std::runtime_error  as reload_text()
  static LoadReport loadText(std::string_view text, const std::string& name = "text in memory");
  static LoadReport loadTextFile(const std::string& path);
  /// @}

  /// Frees the dictionary, at the end of the process: the reference returned by instance() remains a valid, empty
  /// dictionary, and instance() does not return a dictionary created later.
  static void destroy();

  /// Removes the entries and all indexes of `map`, which may be null.
  static void clear_data_structures(MD_FieldMap* map);

  /// @{
  /// Each find returns end() for a field that the dictionary does not contain.
  const_iterator findById(std::uint16_t id) const noexcept {
    return id < m_id_index.size() ? m_id_index[id] : m_rows.end();
  }
  const_iterator findByCompact(std::uint16_t compact) const noexcept {
    return compact < m_compact_index.size() ? m_compact_index[compact] : m_rows.end();
  }
  const_iterator findByName(const std::string& name) const;
  /// @}

  /// @{
  /// A field's type code, name or id. Each of these throws std::domain_error "Invalid id passed to
  /// MD_FieldMap::<operation>()" for an unknown field.
  std::uint8_t idToType(std::uint16_t id) const;
  const std::string& idToName(std::uint16_t id) const;
  std::uint16_t nameToId(const std::string& name) const;
  std::uint8_t nameToType(const std::string& name) const;
  /// @}

  /// The id of the field called `name`; empty for an unknown name.
  [[nodiscard]] std::optional<std::uint16_t> lookUp(std::string_view name) const noexcept;

  /// The source of the fields: the path of a file, or the name of a text. Empty if there is no dictionary file, and
  /// after a failed load.
  const std::string& source() const noexcept { return m_source; }

  /// A hash of the ids, types and names of all fields, independent of the order and format of the file and of the
  /// machine. Programs whose dictionaries have the same fingerprint understand each other's messages.
  ///
  /// The 64-bit FNV-1a hash (offset basis 0xcbf29ce484222325, prime 0x100000001b3) of these bytes of every field, in
  /// the order of ids: the id as two bytes, low byte first; the type code as one byte; the length of the name in bytes
  /// as four bytes, low byte first; the name. Takes time in proportion to the size of the dictionary.
  std::uint64_t fingerprint() const noexcept;

  /// The fast lookup: slot and type of a field, slot 0 if the dictionary does not contain it.
  FIELDS::packed_rec packed(std::uint16_t id) const noexcept { return m_packed[id]; }

  /// The number of assigned dense indexes, which exceeds the number of entries if a file repeats an id.
  std::uint16_t compactCount() const noexcept { return m_compact_count; }

  /// @{
  /// The entries, in the order of their ids.
  const_iterator begin() const noexcept { return m_rows.begin(); }
  const_iterator end() const noexcept { return m_rows.end(); }
  /// @}
  /// The number of entries.
  std::size_t size() const noexcept { return m_rows.size(); }

 private:
  friend class FieldMapLoader;

  MD_FieldMap() = default;
  ~MD_FieldMap() = default;
  MD_FieldMap(const MD_FieldMap&) = delete;
  MD_FieldMap& operator=(const MD_FieldMap&) = delete;

  static MD_FieldMap* createForInstance();
  static MD_FieldMap& createLocked();
  static MD_FieldMap& emptied();
  static MD_FieldMap& emptiedWithoutSearch();
  const_iterator find(std::string_view name) const noexcept;
  const_iterator require(const_iterator row, const char* operation) const;

  std::set<FIELDS::field_rec> m_rows;
  std::vector<const_iterator> m_id_index;
  std::vector<const_iterator> m_compact_index;
  std::vector<std::pair<std::size_t, const_iterator>> m_name_index;  // by the names' hashes, then ids
  std::uint16_t m_compact_count = 0;
  alignas(4) std::array<FIELDS::packed_rec, 65536> m_packed{};  // aligned, so that none spans two cache lines
  std::string m_source;
};

/// The id of the field called `name` in the dictionary of the process; empty for an unknown name. If two fields share a
/// name, it is the higher id. Loads the dictionary on first use, with the exceptions of MD_FieldMap::instance().
/// Thread-safe, like all lookups.
[[nodiscard]] MD_API std::optional<std::uint16_t> lookUp(std::string_view name);

/// The same for a field that a program requires.
/// @throws std::domain_error  for an unknown name; the text names the field and the dictionary file in use or, if there
///         is none, the folders that were searched
[[nodiscard]] MD_API std::uint16_t require(std::string_view name);

}  // namespace MD

#endif
