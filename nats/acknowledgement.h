// What a stream answers to a message.
#ifndef MDMSG_NATS_ACKNOWLEDGEMENT_H
#define MDMSG_NATS_ACKNOWLEDGEMENT_H

#include <cstddef>

#include <string>

namespace MD::tool {

struct Acknowledgement {
  enum class Kind {
    Stored,     ///< or stored before
    Duplicate,  ///< stored before, under the same message id
    Refused,    ///< see `reason`
    NotNow,     ///< the server's streams are not ready
  } kind = Kind::Refused;
  std::string stream;
  std::string reason;
};

/// Reads an answer, which may be anything.
Acknowledgement parseAcknowledgement(const char* text, std::size_t sizeBytes);

}  // namespace MD::tool

#endif
