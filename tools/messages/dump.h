// An annotated dump of a message: every record as it is in the bytes, well-formed or not.
#ifndef MDMSG_DUMP_H
#define MDMSG_DUMP_H

#include <cstddef>
#include <cstdint>

#include "base/output.h"
#include "md/md_fieldmap.h"

namespace MD::tool {

/// The problems that a dump found.
struct DumpResult {
  std::size_t flaws = 0;     ///< marked by "!": what receivers dropped, cannot read or read otherwise than it looks
  bool hasUnknown = false;   ///< whether there is a field that the dictionary does not have
  bool isTruncated = false;  ///< whether the message ends within a record
};

/// Writes a row for each part of each record: offset, bytes, the part (id, type, length, value), field, type and value,
/// and, after an exclamation mark, the problem. Each row is a line of the output, which may write it: memory use does
/// not depend on the size of the message.
DumpResult writeDump(const std::uint8_t* bytes, std::size_t sizeBytes, const MD_FieldMap& map, bool isColored,
                     Output& out);

}  // namespace MD::tool

#endif
