#include "md_typemap.h"

#include <algorithm>

#include <boost/thread/locks.hpp>
#include <boost/thread/mutex.hpp>

#include "assertion.h"
#include "md/md_datatypes.h"

namespace MD::detail {

TypeMap::TypeMap()
    : m_types{
          {"RAW", {DATATYPES::RAW, 0}},
          {"CHAR", {DATATYPES::CHAR, 1}},
          {"INT", {DATATYPES::INT, 4}},
          {"SHORT", {DATATYPES::SHORT, 2}},
          {"FLOAT", {DATATYPES::FLOAT, 4}},
          {"DOUBLE", {DATATYPES::DOUBLE, 8}},
          {"STRING", {DATATYPES::STRING, 0}},
          {"VECTOR", {DATATYPES::VECTOR, 0}},
          {"MSG_T", {DATATYPES::MSG_T, 0}},
          {"DATE", {DATATYPES::DATE, 4}},
          {"TIME", {DATATYPES::TIME, 4}},
          {"FRACTION", {DATATYPES::FRACTION, 12}},
          {"CHILD_MSG", {DATATYPES::CHILD_MSG, 0}},
          {"FOLDED_INT", {DATATYPES::FOLDED_INT, 0}},
          {"BUFFER", {DATATYPES::BUFFER, 0}},
          {"OPTI_PRICE", {DATATYPES::OPTI_PRICE, 4}},
          {"UINT", {DATATYPES::UINT, 4}},
          {"LONG_INT", {DATATYPES::LONG_INT, 4}},
          {"ULONG_INT", {DATATYPES::ULONG_INT, 4}},
          {"INT64", {DATATYPES::INT64, 8}},
          {"DATETIME", {DATATYPES::DATETIME, 8}},
          {"EPOCH_NSEC", {DATATYPES::EPOCH_NSEC, 8}},
      } {
  const auto largest = std::max_element(m_types.begin(), m_types.end(),
                                        [](const auto& a, const auto& b) { return a.second.id < b.second.id; });
  m_id_index.assign(std::size_t{largest->second.id} + 1, m_types.end());
  for (auto i = m_types.begin(); i != m_types.end(); ++i) {
    if (check(i->second.id < m_id_index.size(), "i->second.id < m_id_index.size()", "md_message/src/md_typemap",
              __LINE__)) {
      m_id_index[i->second.id] = i;
    }
  }
}

const TypeMap& TypeMap::shared() {
  // Never freed: a load during the process's exit still finds lock and table.
  static auto& mutex = *new boost::mutex;
  static const TypeMap* table = nullptr;
  const boost::lock_guard<boost::mutex> lock(mutex);
  if (table == nullptr) {
    table = new TypeMap;
  }
  return *table;
}

}  // namespace MD::detail
