/// @file
/// Parses received bytes of any encoding into messages that are reused. One receiver belongs to one thread at a time;
/// different receivers are independent.
#ifndef MD_RECEIVER_H
#define MD_RECEIVER_H

#include <cstdint>

#include "md/md_api.h"
#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace MD {

/// Holds one message of each encoding. In steady state it allocates nothing and takes no lock.
class MD_API Receiver {
 public:
  /// Loads the dictionary on its first use, with the exceptions of MD_FieldMap::instance().
  Receiver();
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  /// Parses a serialised message as MD_Message::createFromBytes() does. Diagnostics of dropped records are the same.
  /// std::bad_alloc leaves all messages unchanged.
  /// @return the message, which belongs to the receiver and is valid until the next parse(); null for an unknown
  ///         encoding byte, and for null or no bytes
  MD_Message* parse(const std::uint8_t* bytes, std::uint32_t sizeBytes);

 private:
  mInt m_mInt;
  IterMap m_iterMap;
  MsgT m_msgT;
};

}  // namespace MD

#endif
