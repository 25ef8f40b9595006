// What the program does with its inputs.
#ifndef MDMSG_COMMANDS_H
#define MDMSG_COMMANDS_H

#include <string>

#include "diagnostics.h"
#include "inputs.h"
#include "message_source.h"
#include "output.h"

namespace MD::tool {

enum class Format { Text, PriceText, Json };

/// JSON lines, or CSV, to hex lines.
/// @throws UsageError for an encoding that there is not
void encode(const Inputs& inputs, const std::string& encoding, bool isCsv, Output& out, Reporter& reporter);

/// Messages to print-outs or JSON lines.
void decode(const Inputs& inputs, const SourceOptions& source, Format format, Output& out, Reporter& reporter);

/// Messages to hex lines of another encoding.
/// @throws UsageError for an encoding that there is not
void convert(const Inputs& inputs, const SourceOptions& source, const std::string& encoding, Output& out,
             Reporter& reporter);

}  // namespace MD::tool

#endif
