// The inputs of a command, one after the other: files, and standard input.
#ifndef MDMSG_INPUTS_H
#define MDMSG_INPUTS_H

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "base/output.h"
#include "transport/input_buffer.h"
#include "transport/message_source.h"

namespace MD::tool {

struct Inputs {
  std::vector<std::string> files;  ///< "-" is standard input, and so is an empty list
  std::istream& standardInput;
  /// Where there is one, messages come from it and from nothing else; the reporter knows its name already.
  MessageSource* live = nullptr;
};

enum class Go { On, NoFurther };

/// Calls `use` with each input until it wants no more. One that cannot be opened or read on is reported, and the rest
/// goes on.
void forEachInput(const Inputs& inputs, Reporter& reporter, const std::function<Go(InputBuffer&)>& use);

/// Calls `use` with each message of all inputs until it wants no more. A LineError, of the input or out of `use`, is
/// reported, and what had been put out so far for that message is taken back.
/// @param whenRead  called with the source of each input when it has been read as far as it goes
void forEachMessage(const Inputs& inputs, const SourceOptions& options, Output& out, Reporter& reporter,
                    const std::function<Go(const InputMessage&)>& use,
                    const std::function<void(const MessageSource&)>& whenRead = {});

}  // namespace MD::tool

#endif
