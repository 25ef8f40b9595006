#include "transport/capture.h"

#include <cstring>

#include <limits>

namespace MD::tool {
namespace {

constexpr std::uint32_t kNanosecondMagic = 0xa1b23c4d;

void append32(std::uint32_t value, std::string& out) {
  for (int i = 0; i != 4; ++i, value >>= 8) {
    out += static_cast<char>(value & 0xff);
  }
}

}  // namespace

bool isCapture(std::string_view firstBytes) noexcept {
  constexpr std::string_view kMagics[] = {
      {"\xa1\xb2\xc3\xd4", 4}, {"\xd4\xc3\xb2\xa1", 4},  // microseconds, either byte order
      {"\xa1\xb2\x3c\x4d", 4}, {"\x4d\x3c\xb2\xa1", 4},  // nanoseconds
      {"\xa1\xb2\xcd\x34", 4}, {"\x34\xcd\xb2\xa1", 4},  // with longer packet headers
      {"\x0a\x0d\x0d\x0a", 4},                           // pcapng
  };
  for (const std::string_view magic : kMagics) {
    if (firstBytes == magic) {
      return true;
    }
  }
  return false;
}

LineError noSuchTime(const std::string& ns) {
  return LineError(ReportKind::NotHeld, "a capture cannot say the time " + ns + " (years 1970 to 2106)");
}

void CaptureWriter::begin(std::string& out) {
  append32(kNanosecondMagic, out);
  out.append("\x02\x00\x04\x00", 4);  // version 2.4
  append32(0, out);                   // times are UTC
  append32(0, out);
  append32(262144, out);  // the longest packet
  append32(kLinkEthernet, out);
}

void CaptureWriter::append(std::int64_t timeNs, const std::uint8_t* payload, std::size_t payloadBytes,
                           std::string& out) {
  if (payloadBytes > kMaxPayloadBytes) {
    throw LineError(ReportKind::NotHeld, std::to_string(payloadBytes) + " bytes are too long for a datagram (" +
                                             std::to_string(kMaxPayloadBytes) + ")");
  }
  constexpr std::int64_t kNsPerSecond = 1'000'000'000;
  if (timeNs < 0 || timeNs / kNsPerSecond > std::numeric_limits<std::uint32_t>::max()) {
    throw noSuchTime(std::to_string(timeNs));
  }
  m_frame.clear();
  appendFrame(m_source, m_destination, m_identification++, payload, payloadBytes, m_frame);
  append32(static_cast<std::uint32_t>(timeNs / kNsPerSecond), out);
  append32(static_cast<std::uint32_t>(timeNs % kNsPerSecond), out);
  append32(static_cast<std::uint32_t>(m_frame.size()), out);
  append32(static_cast<std::uint32_t>(m_frame.size()), out);
  out += m_frame;
}

}  // namespace MD::tool
