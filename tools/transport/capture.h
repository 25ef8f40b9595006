// Capture files: read by the capture library where the program is built with it, and written, which needs none.
#ifndef MDMSG_CAPTURE_H
#define MDMSG_CAPTURE_H

#include <cstddef>
#include <cstdint>

#include <memory>
#include <string>
#include <string_view>

#include "base/diagnostics.h"
#include "base/output.h"
#include "transport/input_buffer.h"
#include "transport/message_source.h"
#include "transport/packet.h"

namespace MD::tool {

/// How many of its first bytes identify a capture.
constexpr std::size_t kCaptureMagicBytes = 4;
/// Whether these are the first bytes of a pcap or pcapng file.
bool isCapture(std::string_view firstBytes) noexcept;

/// Reads the UDP datagrams of a capture. Packets that hold none, and fragments, are counted.
/// @throws InputError when the input is no capture that can be read, or the program cannot read captures
/// @throws UsageError for a filter that the capture library refuses
std::unique_ptr<MessageSource> openCapture(InputBuffer& in, const SourceOptions& options, Output& out,
                                           Reporter& reporter);

/// What to say about a packet's time that is out of range.
LineError noSuchTime(const std::string& ns);

/// Appends what a pcap file of this format begins with.
void appendCaptureHeader(const CaptureFormat& format, std::string& out);
/// Appends a packet. @param timeNs  since 1970, from 0 to the year 2106, where the format's 32 bits of seconds end
/// @throws LineError when the time is out of range; nothing is appended
void appendPacket(const CapturedPacket& packet, const CaptureFormat& format, std::int64_t timeNs, std::string& out);

/// Writes a pcap file (nanosecond timestamps, Ethernet) into a string: begin() once, then packets.
class CaptureWriter {
 public:
  CaptureWriter(const Endpoint& source, const Endpoint& destination) : m_source(source), m_destination(destination) {}

  /// Appends what the file begins with.
  static void begin(std::string& out) { appendCaptureHeader(CaptureFormat(), out); }

  /// Appends a packet with a UDP datagram.
  /// @param timeNs  as of appendPacket()
  /// @throws LineError when the payload is longer than kMaxPayloadBytes or the time out of range; nothing is appended
  void append(std::int64_t timeNs, const std::uint8_t* payload, std::size_t payloadBytes, std::string& out);

 private:
  Endpoint m_source;
  Endpoint m_destination;
  std::uint16_t m_identification = 0;
  std::string m_frame;
};

}  // namespace MD::tool

#endif
