// Type names of definition files.
#ifndef MD_SRC_TYPEMAP_H
#define MD_SRC_TYPEMAP_H

#include <cstdint>

#include <map>
#include <string>
#include <vector>

namespace MD::detail {

/// The table from type name to type code and fixed size. Names are matched exactly.
class TypeMap {
 public:
  struct Type {
    std::uint8_t id;           ///< a `DATATYPES` code
    std::uint8_t lengthBytes;  ///< 0 for a variable or composite size
  };
  using const_iterator = std::map<std::string, Type>::const_iterator;

  TypeMap();
  TypeMap(const TypeMap&) = delete;
  TypeMap& operator=(const TypeMap&) = delete;

  /// The table that all XML loads share, made on first use and kept for the life of the process.
  static const TypeMap& shared();

  const_iterator find(const std::string& name) const { return m_types.find(name); }
  /// A name that has `code`; end() for a code without one.
  const_iterator findByCode(std::uint8_t code) const { return code < m_id_index.size() ? m_id_index[code] : end(); }
  const_iterator begin() const { return m_types.begin(); }
  const_iterator end() const { return m_types.end(); }

 private:
  std::map<std::string, Type> m_types;
  std::vector<const_iterator> m_id_index;
};

}  // namespace MD::detail

#endif
