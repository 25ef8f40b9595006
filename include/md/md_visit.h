/// @file
/// Calls a function with a message as its own class, once per message instead of once per field.
#ifndef MD_VISIT_H
#define MD_VISIT_H

#include <utility>

#include "md/md_datatypes.h"
#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace MD {

/// @{
/// Calls `f` with the message as its own class: `mInt&`, `IterMap&` or `MsgT&`, const for a const message. Through
/// these classes, get(), add() and update() are inlined. A generic lambda is compiled for each encoding; all three must
/// return the same type.
/// @param message  of one of these three classes, like all messages created by the library
/// @return the result of `f`
template <class F>
decltype(auto) visit(MD_Message& message, F&& f) {
  switch (message.getPB()) {
    case ENCODINGS::ITERMAP:
      return std::forward<F>(f)(static_cast<IterMap&>(message));
    case ENCODINGS::MINT:
      return std::forward<F>(f)(static_cast<mInt&>(message));
    default:
      return std::forward<F>(f)(static_cast<MsgT&>(message));
  }
}

template <class F>
decltype(auto) visit(const MD_Message& message, F&& f) {
  switch (message.getPB()) {
    case ENCODINGS::ITERMAP:
      return std::forward<F>(f)(static_cast<const IterMap&>(message));
    case ENCODINGS::MINT:
      return std::forward<F>(f)(static_cast<const mInt&>(message));
    default:
      return std::forward<F>(f)(static_cast<const MsgT&>(message));
  }
}
/// @}

}  // namespace MD

#endif
