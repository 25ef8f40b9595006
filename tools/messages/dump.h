// A message taken apart byte by byte, for people: every record as it lies there, sound or not.
#ifndef MDMSG_DUMP_H
#define MDMSG_DUMP_H

#include <cstddef>
#include <cstdint>

#include <string>

#include "md/md_fieldmap.h"

namespace MD::tool {

/// What a dump met with.
struct DumpResult {
  std::size_t records = 0;
  std::size_t flaws = 0;     ///< marked by "!": what receivers cut out, cannot read or read otherwise than it looks
  bool isTruncated = false;  ///< whether the message ends inside a record
};

/// Appends a row a part of each record: offset, bytes, the part (id, type, length, value), field, type and value, and
/// behind an exclamation mark what is wrong there. Walks the records by itself, as receivers do, so that it can show
/// what they cut out. Reads nothing outside `bytes`, whatever they are; every byte appears once.
DumpResult appendDump(const std::uint8_t* bytes, std::size_t sizeBytes, const MD_FieldMap& map, bool isColored,
                      std::string& out);

}  // namespace MD::tool

#endif
