// Feeds: generated, sent, and received.
#ifndef MDMSG_FEED_COMMANDS_H
#define MDMSG_FEED_COMMANDS_H

#include <cstdint>

#include <chrono>
#include <optional>
#include <string>

#include "commands/commands.h"
#include "messages/feed.h"
#include "messages/message_sink.h"
#include "transport/udp.h"

namespace MD::tool {

/// Writes a synthetic feed, and prints a summary at the end.
void generate(const FeedOptions& feed, const SinkOptions& sink, Output& out, Reporter& reporter);

struct ReplayOptions {
  std::string to;                                      ///< "HOST:PORT"
  std::optional<double> speed = 1;                     ///< relative to the capture; none: without pauses
  std::optional<std::uint64_t> perSecond;              ///< datagrams, whatever the capture's pace
  std::optional<std::chrono::nanoseconds> longestGap;  ///< in a capture's pace
  MulticastOptions multicast;
};

/// Sends each message of the inputs as a UDP datagram, bytes unchanged, with the timing of the capture.
void replay(const ReplayOptions& options, const Task& task);

struct ListenOptions {
  std::string at;  ///< "HOST:PORT"
  MulticastOptions multicast;
  ListenLimits limits;
  /// What to write: datagrams as they came, as hex lines or a capture, or as decode() shows them.
  enum class Form { Decoded, HexLines, Capture } form = Form::Decoded;
  DecodeOptions decode;
};

/// Writes the datagrams that arrive.
void listen(const ListenOptions& options, const SelectionOptions& selection, Output& out, Reporter& reporter);

}  // namespace MD::tool

#endif
