// What the program does with its inputs.
#ifndef MDMSG_COMMANDS_H
#define MDMSG_COMMANDS_H

#include <iosfwd>
#include <string>
#include <vector>

#include "diagnostics.h"
#include "output.h"

namespace MD::tool {

enum class Format { Text, PriceText, Json };

struct Inputs {
  std::vector<std::string> files;  ///< "-" is standard input, and so is an empty list
  std::istream& standardInput;
};

/// JSON lines, or CSV, to hex lines.
/// @throws UsageError for an encoding that there is not
void encode(const Inputs& inputs, const std::string& encoding, bool isCsv, Output& out, Reporter& reporter);

/// Hex lines to print-outs or JSON lines.
void decode(const Inputs& inputs, Format format, Output& out, Reporter& reporter);

/// Hex lines to hex lines of another encoding.
/// @throws UsageError for an encoding that there is not
void convert(const Inputs& inputs, const std::string& encoding, Output& out, Reporter& reporter);

}  // namespace MD::tool

#endif
