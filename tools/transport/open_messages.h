// How the messages of an input are found: by what the options say of its form, or by its first bytes.
#ifndef MDMSG_OPEN_MESSAGES_H
#define MDMSG_OPEN_MESSAGES_H

#include <memory>

#include "base/diagnostics.h"
#include "base/output.h"
#include "transport/input_buffer.h"
#include "transport/message_source.h"

namespace MD::tool {

/// @param in   the input, from its first byte on; outlives the source
/// @param out  written out before each wait for more input
/// @throws UsageError when the options do not go with the input; InputError when it cannot be read at all
std::unique_ptr<MessageSource> openMessages(InputBuffer& in, const SourceOptions& options, Output& out,
                                            Reporter& reporter);

}  // namespace MD::tool

#endif
