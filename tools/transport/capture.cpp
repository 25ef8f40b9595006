#include "transport/capture.h"

#include <cstring>

#include <limits>

namespace MD::tool {
namespace {

void append32(std::uint32_t value, bool isBigEndian, std::string& out) {
  for (unsigned i = 0; i != 4; ++i) {
    out += static_cast<char>(value >> 8 * (isBigEndian ? 3 - i : i) & 0xff);
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
  return LineError(ReportKind::NotHeld, "a capture cannot store the time " + ns + " (years 1970 to 2106)");
}

void appendCaptureHeader(const CaptureFormat& format, std::string& out) {
  constexpr std::uint32_t kMicrosecondMagic = 0xa1b2c3d4;
  constexpr std::uint32_t kNanosecondMagic = 0xa1b23c4d;
  append32(format.isNanosecond ? kNanosecondMagic : kMicrosecondMagic, format.isBigEndian, out);
  out.append(format.isBigEndian ? std::string_view("\0\2\0\4", 4) : std::string_view("\2\0\4\0", 4));  // version 2.4
  for (const std::uint32_t value : {format.zone, format.significantFigures, format.snapshotBytes, format.link}) {
    append32(value, format.isBigEndian, out);
  }
}

void appendPacket(const CapturedPacket& packet, const CaptureFormat& format, std::int64_t timeNs, std::string& out) {
  constexpr std::int64_t kNsPerSecond = 1'000'000'000;
  if (timeNs < 0 || timeNs / kNsPerSecond > std::numeric_limits<std::uint32_t>::max()) {
    throw noSuchTime(std::to_string(timeNs));
  }
  const std::int64_t part = timeNs % kNsPerSecond;
  append32(static_cast<std::uint32_t>(timeNs / kNsPerSecond), format.isBigEndian, out);
  append32(static_cast<std::uint32_t>(format.isNanosecond ? part : part / 1000), format.isBigEndian, out);
  append32(packet.sizeBytes, format.isBigEndian, out);
  append32(packet.wireBytes, format.isBigEndian, out);
  const void* const bytes = packet.data;
  out.append(static_cast<const char*>(bytes), packet.sizeBytes);
}

void CaptureWriter::append(std::int64_t timeNs, const std::uint8_t* payload, std::size_t payloadBytes,
                           std::string& out) {
  if (payloadBytes > kMaxPayloadBytes) {
    throw LineError(ReportKind::NotHeld, std::to_string(payloadBytes) + " bytes are too long for a datagram (" +
                                             std::to_string(kMaxPayloadBytes) + ")");
  }
  m_frame.clear();
  appendFrame(m_source, m_destination, m_identification, payload, payloadBytes, m_frame);
  CapturedPacket packet;
  const void* const bytes = m_frame.data();
  packet.data = static_cast<const std::uint8_t*>(bytes);
  packet.sizeBytes = packet.wireBytes = static_cast<std::uint32_t>(m_frame.size());
  appendPacket(packet, CaptureFormat(), timeNs, out);
  ++m_identification;
}

}  // namespace MD::tool
