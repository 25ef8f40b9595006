// The headers of published messages.
#ifndef MDMSG_NATS_HEADERS_H
#define MDMSG_NATS_HEADERS_H

#include <cstdint>

#include <optional>
#include <string>

#include <nats/nats.h>

#include "transport/message_source.h"

namespace MD::tool {

constexpr const char* kDictionaryHeader =
    "Md-Dictionary";                                      ///< fingerprint of the publisher's dictionary, 16 hex digits
constexpr const char* kPublisherHeader = "Md-Publisher";  ///< who published
constexpr const char* kTimeHeader = "Md-Time";            ///< when it was captured, nanoseconds since 1970
constexpr const char* kSourceHeader = "Md-Source";        ///< the datagram's source, ADDRESS:PORT
constexpr const char* kMessageIdHeader = "Nats-Msg-Id";   ///< by which a stream recognises what it holds

/// Writes the headers of one publisher's messages.
class HeaderWriter {
 public:
  /// @param publisher  as the user names it; none: a name of this run
  explicit HeaderWriter(const std::optional<std::string>& publisher);

  /// @param timeNs  when the message was captured
  /// @param source  where from; port 0: unknown
  natsStatus write(const std::optional<std::int64_t>& timeNs, const Endpoint& source, natsMsg* to);

  const std::string& publisher() const noexcept { return m_publisher; }

 private:
  std::string m_publisher;
  std::string m_dictionary;
  Endpoint m_source;
  std::string m_sourceText;
};

/// The fingerprint of the process's dictionary as the header has it.
std::string ownFingerprint();

/// The capture time that a header holds, from 0 to the end of 63 bits.
std::optional<std::int64_t> capturedNs(natsMsg* message);

}  // namespace MD::tool

#endif
