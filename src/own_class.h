// From a message to the class of its encoding.
#ifndef MD_SRC_OWN_CLASS_H
#define MD_SRC_OWN_CLASS_H

#include <type_traits>
#include <typeinfo>

#include "md/detail/encodings.h"
#include "md/md_datatypes.h"
#include "md/md_message.h"

namespace MD::detail {

/// Calls `use` with the message as the class of its encoding.
/// @return whether it is of one; a program may have classes of its own
template <class Message, class Use>
bool withOwnClass(Message& message, Use use) {
  const auto isUsedAs = [&](auto* const none) {
    using Encoding = std::remove_pointer_t<decltype(none)>;
    using Own = std::conditional_t<std::is_const_v<Message>, const Encoding, Encoding>;
    if (typeid(message) != typeid(Encoding)) {
      return false;
    }
    use(static_cast<Own&>(message));
    return true;
  };
  switch (message.getPB()) {
#define MD_CASE(Class, CODE, code) \
  case ENCODINGS::CODE:            \
    return isUsedAs(static_cast<Class*>(nullptr));
    MD_ENCODINGS(MD_CASE)
#undef MD_CASE
    default:
      return false;
  }
}

}  // namespace MD::detail

#endif
