// Streams of JetStream.
#ifndef MDMSG_NATS_STREAM_H
#define MDMSG_NATS_STREAM_H

#include <string>

#include "nats/connection.h"

namespace MD::tool {

/// The context of a connection's calls. @throws std::bad_alloc
NatsPointer<jsCtx> streamContext(natsConnection& connection);

/// What the server says of a stream; null when it does not know it, or does not answer.
NatsPointer<jsStreamInfo> streamInfo(natsConnection& connection, const std::string& name);

/// Makes sure that there is a stream to publish to.
/// @param subjects  of a stream that is created
/// @throws UsageError when there is none, or what it is does not go with the options
void prepareStream(natsConnection& connection, const PublishOptions& options, const std::string& subjects);

/// Why a call failed that has to do with streams.
std::string streamReason(natsStatus status, jsErrCode code);

}  // namespace MD::tool

#endif
