// The fields of a message, each once.
#ifndef MD_SRC_FIELD_LIST_H
#define MD_SRC_FIELD_LIST_H

#include <cstdint>

#include <vector>

#include "md/md_message.h"

namespace MD::detail {

/// Empties `ids`, then lists the ids of a message in wire order, each once: one that received bytes repeat at the place
/// of its last record. Records that are no fields any more, because a repeated field was erased, are not listed.
void listFields(const MD_Message& message, std::vector<std::uint16_t>& ids);

/// The same, and how many records each id has.
void listFields(const MD_Message& message, std::vector<std::uint16_t>& ids, std::vector<std::uint32_t>& recordCounts);

}  // namespace MD::detail

#endif
