// The objects of the handles of the C API. Not installed.
#ifndef MD_C_WRAPPER_CELLS_H
#define MD_C_WRAPPER_CELLS_H

#include <cstdint>

#include <iterator>
#include <memory>
#include <utility>

#include "md/detail/encodings.h"
#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_datetime.h"
#include "md/md_message.h"

/// Owns a message of any encoding, or none.
struct MD_MessageCell {
  std::unique_ptr<MD::MD_Message> message;
  std::uint8_t code = 0;  ///< the message's encoding, 0 for no message

  void hold(std::unique_ptr<MD::MD_Message> held) {
    message = std::move(held);
    code = message != nullptr ? message->getPB() : std::uint8_t{0};
  }
};

/// One message of each encoding.
struct MD_ReceiverCell {
  MD_MessageCell messages[std::size(MD::ENCODINGS::kAll)];
};

struct MD_DateTimeCell {
  std::unique_ptr<MD::MD_DateTime> dateTime;
};

namespace MD::detail {

/// Calls `use` with the message of a cell as its own class, for example `mInt&`, whose inline operations on fields need
/// no virtual call. False for a cell without a message.
template <class Use>
MD_ALWAYS_INLINE inline bool withOwnClass(const MD_MessageCell& cell, Use use) {
  switch (cell.code) {
#define MD_CASE(Class, CODE, code) \
  case ENCODINGS::CODE:            \
    return use(static_cast<Class&>(*cell.message));
    MD_ENCODINGS(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

}  // namespace MD::detail

#endif
