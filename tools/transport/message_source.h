// Messages as bytes from any input: hex lines, one raw message, a stream with length prefixes, a capture.
#ifndef MDMSG_MESSAGE_SOURCE_H
#define MDMSG_MESSAGE_SOURCE_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <string_view>

#include "base/diagnostics.h"
#include "base/encodings.h"
#include "base/output.h"
#include "transport/packet.h"

namespace MD::tool {

/// The number that precedes each message of a stream, the message's length without itself.
struct Framing {
  std::uint8_t sizeBytes = 4;  ///< 2 or 4
  bool isBigEndian = false;
};

/// "u16le", "u16be", "u32le" or "u32be". @throws UsageError for any other text
Framing parseFraming(const std::string& text);

enum class InputForm {
  Recognised,  ///< a capture when it begins as one, else hex lines
  HexLines,
  Lines,  ///< of text: each that is not space is a "message"
  Raw,    ///< one message, as it is
  Framed,
  Capture,  ///< pcap or pcapng; the payload of each UDP datagram is a message
};

/// How messages are read.
struct SourceOptions {
  InputForm form = InputForm::Recognised;
  Framing framing;  ///< of Framed
  // Of captures: which datagrams count, by where they go and by a filter expression of the capture library.
  std::optional<std::uint16_t> port;
  std::optional<IpAddress> group;
  std::string filter;
  std::uint32_t longestMessageBytes = kLongestMessage;  ///< a longer one is reported
  /// Whether datagrams that have an unknown encoding byte come too; else they are counted, and reported at the end.
  bool takesForeign = false;
  /// Of captures: whether packets without a datagram come too, as messages without bytes.
  bool takesPackets = false;

  bool selectsDatagrams() const noexcept { return port || group || !filter.empty(); }
};

/// One message as it was found, of at most 4,294,967,295 bytes. They may be anything and are valid until the next one
/// is read.
struct InputMessage {
  const std::uint8_t* data = nullptr;
  std::size_t sizeBytes = 0;
  /// Of captures: when it was captured, in nanoseconds since 1970, from where and to where.
  std::optional<std::int64_t> timeNs;
  Endpoint source;
  Endpoint destination;
  bool hasEndpoints = false;          ///< the two above are known
  std::uint64_t input = 0;            ///< the number of the input that it is from
  const std::string* file = nullptr;  ///< the name of that input; null where there is none
  std::uint64_t number = 0;           ///< of the packet, message or line in it, from 1; 0 where it is the whole input
  // What it was found in: of captures the packet, of hex lines the line without its end.
  const CapturedPacket* packet = nullptr;
  std::string_view line;
};

/// What a capture held.
struct CaptureCounts {
  std::uint64_t packets = 0;
  std::uint64_t datagrams = 0;  ///< complete ones that the options select
  std::uint64_t foreign = 0;    ///< of them: those that have an unknown encoding byte
  std::uint64_t notSelected = 0;
  std::uint64_t fragments = 0;
  std::uint64_t cutShort = 0;  ///< of which the capture kept a part
  std::uint64_t malformed = 0;
  std::uint64_t tcp = 0;
  std::uint64_t otherTransport = 0;
  std::uint64_t notIp = 0;
};

CaptureCounts operator+(CaptureCounts sum, const CaptureCounts& counts) noexcept;

class FrameCursor;

class MessageSource {
 public:
  virtual ~MessageSource() = default;

  /// Reads the next message and sets the reporter's place to its own.
  /// @return false at the end
  /// @throws LineError when there is no message at this place; the next one can be read
  /// @throws InputError when nothing more can be read
  virtual bool next(InputMessage& message) = 0;

  /// After next(): the messages after that one that are already in memory. They may be read from there, without the
  /// reporter's place, and are then not read by next(). Valid until next(); null where there are none.
  virtual FrameCursor* frames() noexcept { return nullptr; }

  /// Reports what is to be said of the input as a whole, once it has been read.
  virtual void reportWhole() {}

  /// Whether next() skipped and reported binary lines where hex lines were expected.
  virtual bool looksBinary() const noexcept { return false; }

  /// Null for inputs that are no capture.
  virtual const CaptureCounts* counts() const { return nullptr; }

  /// What the input's packets are written with; null for inputs that are no capture.
  virtual const CaptureFormat* captureFormat() const { return nullptr; }
};

/// Whether a message begins with the code of an encoding.
inline bool hasEncodingCode(const InputMessage& message) noexcept {
  return message.sizeBytes != 0 && isEncoding(message.data[0]);
}

}  // namespace MD::tool

#endif
