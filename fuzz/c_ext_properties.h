// The properties of what md_message_c_ext.h adds to the C interface, as comparisons with the C++ interface.
#ifndef MD_FUZZ_C_EXT_PROPERTIES_H
#define MD_FUZZ_C_EXT_PROPERTIES_H

#include <cstdint>

#include "fuzz_input.h"
#include "md/md_message.h"
#include "md/md_message_c_ext.h"

namespace MD::fuzz {

/// Checks code and bytes of a handle.
void checkBytes(MD_MessageHandle handle, const MD_Message& message);

/// Checks the ids of a handle and both text outputs, each with sufficient and insufficient capacity, and their
/// assertions; if the handler throws, the remaining state.
void checkLists(MD_MessageHandle handle, const MD_Message& message, FuzzInput& input);

/// Checks the location of a field and its value as a date-time.
void checkField(MD_MessageHandle handle, const MD_Message& message, std::uint16_t id);

/// Copies both ways of the interface, between two handles and between two messages, of one object to itself where the
/// two are one, and checks results and what is asserted.
void copyBoth(MD_MessageHandle to, MD_Message& toMessage, MD_MessageHandle from, const MD_Message& fromMessage,
              bool handlerThrows);

/// Checks lookups of an id and of names, and the list of all ids.
void checkDictionary(FuzzInput& input);

/// Checks that null pointers, and handles that hold no message, give the null results and leave the outputs alone.
void checkNullExtArguments(MD_MessageHandle handle, std::uint16_t id);

}  // namespace MD::fuzz

#endif
