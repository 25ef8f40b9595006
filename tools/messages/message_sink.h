// Messages as bytes to any output: hex lines, one raw message, a stream with length prefixes, a capture.
#ifndef MDMSG_MESSAGE_SINK_H
#define MDMSG_MESSAGE_SINK_H

#include <cstdint>

#include <optional>
#include <string>

#include "base/output.h"
#include "dictionary/field_names.h"
#include "md/md_message.h"
#include "transport/capture.h"
#include "transport/message_source.h"
#include "transport/packet.h"

namespace MD::tool {

enum class OutputForm { HexLines, Raw, Framed, Capture };

/// Whether what is written of a message does not depend on those before it.
inline bool isMessageByMessage(OutputForm form) noexcept {
  return form == OutputForm::HexLines || form == OutputForm::Framed;
}

struct SinkOptions {
  OutputForm form = OutputForm::HexLines;
  Framing framing;  ///< of Framed
  // Of captures: from where to where the datagrams go, and the EPOCH_NSEC field that holds their times.
  std::string source = "192.0.2.1:30000";
  std::string destination = "239.192.0.1:30001";
  std::string timeField;
};

/// The EPOCH_NSEC field of this name or id. @throws UsageError when there is none
Field timeFieldOf(const std::string& name, const FieldNames& names);

/// What to say of a second message of a raw output.
LineError secondRaw();
void appendBytes(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out);
/// Appends bytes with their length before them. @throws LineError when they are too long; nothing is appended
void appendFramed(const Framing& framing, const std::uint8_t* bytes, std::uint32_t sizeBytes, std::string& out);

class MessageSink {
 public:
  /// @throws UsageError when an option cannot be used
  MessageSink(const SinkOptions& options, const FieldNames& names, Output& out);

  /// Appends a message to the output's text.
  /// @param timeNs  of a capture's packet, for a message that has no time field; without one it comes a millisecond
  ///                after the one before
  /// @throws LineError when the output cannot hold the message
  void append(const MD_Message& message, std::optional<std::int64_t> timeNs);

  /// Appends bytes, whatever they are. @param timeNs  of a capture's packet
  /// @throws LineError when the output cannot hold them
  void append(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::int64_t timeNs);

 private:
  std::int64_t packetTime(const MD_Message& message, std::optional<std::int64_t> timeNs);

  SinkOptions m_options;
  Output& m_out;
  std::optional<Field> m_timeField;
  std::optional<CaptureWriter> m_capture;
  std::int64_t m_lastTimeNs = -1'000'000;
  bool m_hasRaw = false;
};

}  // namespace MD::tool

#endif
