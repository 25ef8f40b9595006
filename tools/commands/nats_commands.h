// Messages on NATS: what the command lines of publish and subscribe ask for. The program mdmsg-nats does it; mdmsg
// itself is built without the client library and starts that program in its place.
#ifndef MDMSG_NATS_COMMANDS_H
#define MDMSG_NATS_COMMANDS_H

#include <cstdint>

#include <chrono>
#include <limits>
#include <optional>
#include <string>

#include "base/output.h"
#include "commands/commands.h"

namespace MD::tool {

/// How a server is reached.
struct NatsServerOptions {
  std::string url = "nats://127.0.0.1:4222";  ///< several with commas
  std::optional<std::string> credentialsFile;
  std::optional<std::string> user;
  std::optional<std::string> passwordFile;
  std::optional<std::string> tokenFile;
  bool isTls = false;
  std::optional<std::string> caFile;
  std::optional<std::string> certificateFile;
  std::optional<std::string> keyFile;
  std::chrono::milliseconds retry{30000};  ///< how long a lost server is looked for
};

/// The stream that a publisher creates.
struct NatsStreamLimits {
  std::optional<std::int64_t> messages;
  std::optional<std::int64_t> bytes;
  std::optional<std::chrono::nanoseconds> age;
  std::optional<std::int64_t> perSubject;
  bool refusesNew = false;  ///< when it is full; else it drops the oldest messages
  bool isInMemory = false;
  std::chrono::nanoseconds duplicateWindow = std::chrono::minutes(2);
};

struct PublishOptions {
  NatsServerOptions server;
  std::string subject;                ///< with fields in braces
  std::optional<std::string> stream;  ///< acknowledged by this stream; none: core NATS
  bool createsStream = false;
  NatsStreamLimits limits;
  std::optional<std::string> publisher;  ///< who publishes; none: host and process
  bool isLatency = false;                ///< each message is written to the connection at once
};

enum class NatsStart { All, New, LastPerSubject, Time, Sequence };

struct SubscribeOptions {
  NatsServerOptions server;
  std::string subject = ">";
  std::optional<std::string> stream;  ///< from this stream; none: core NATS
  NatsStart start = NatsStart::All;
  std::int64_t startTimeNs = 0;
  std::uint64_t startSequence = 0;
  std::optional<std::string> durable;
  std::optional<std::string> group;
  std::chrono::milliseconds ackWait{30000};
  std::uint64_t count = std::numeric_limits<std::uint64_t>::max();
  std::optional<std::chrono::nanoseconds> timeout;
  std::optional<std::chrono::nanoseconds> idle;
  bool endsWhenCaughtUp = false;  ///< ends with the last message that the stream holds
  int pendingMessages = 1'000'000;

  enum class Form { Decoded, Bytes } form = Form::Decoded;
  DecodeOptions decode;
  SinkOptions sink;
};

/// The two commands, as a program with the client library has them.
struct NatsCommands {
  /// Publishes the messages of a source, and reports how many arrived.
  void (*publish)(const PublishOptions& options, const Task& task);
  /// Writes the messages that arrive.
  void (*subscribe)(const SubscribeOptions& options, const SelectionOptions& selection, Output& out,
                    Reporter& reporter);
};

}  // namespace MD::tool

#endif
