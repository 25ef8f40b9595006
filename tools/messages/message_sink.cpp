#include "messages/message_sink.h"

#include <limits>

#include "base/diagnostics.h"
#include "base/hex.h"

namespace MD::tool {
namespace {

Endpoint ipv4Endpoint(const char* option, const std::string& text) {
  const auto endpoint = parseEndpoint(text);
  if (!endpoint || endpoint->address.sizeBytes != 4) {
    throw UsageError(option + (": " + inQuotes(text)) +
                     " is not an IPv4 address and a port, such as 239.192.0.1:30001");
  }
  return *endpoint;
}

}  // namespace

LineError secondRaw() {
  return {ReportKind::NotHeld, "a raw output holds one message; u16le, u16be, u32le and u32be keep several apart"};
}

void appendBytes(const std::uint8_t* bytes, std::size_t sizeBytes, std::string& out) {
  const void* const first = bytes;
  out.append(static_cast<const char*>(first), sizeBytes);
}

Field timeFieldOf(const std::string& name, const FieldNames& names) {
  const Field field = names.match("--time-field", name);
  if (field.type != DATATYPES::EPOCH_NSEC) {
    throw UsageError("--time-field: field " + printable(name) + " is not an EPOCH_NSEC");
  }
  return field;
}

MessageSink::MessageSink(const SinkOptions& options, const FieldNames& names, Output& out)
    : m_options(options), m_out(out) {
  if (!options.timeField.empty()) {
    m_timeField = timeFieldOf(options.timeField, names);
  }
  if (options.form == OutputForm::Capture) {
    m_capture.emplace(ipv4Endpoint("--source", options.source), ipv4Endpoint("--destination", options.destination));
    CaptureWriter::begin(out.text());
    out.lineDone();
  }
}

void MessageSink::append(const MD_Message& message, std::optional<std::int64_t> timeNs) {
  const bool needsTime = m_options.form == OutputForm::Capture;
  append(message.getBinary(), message.getSizeImpl(), needsTime ? packetTime(message, timeNs) : 0);
}

void MessageSink::append(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::int64_t timeNs) {
  switch (m_options.form) {
    case OutputForm::HexLines:
      appendHex(bytes, sizeBytes, m_out.text());
      m_out.text() += '\n';
      return;
    case OutputForm::Raw:
      if (m_hasRaw) {
        throw secondRaw();
      }
      m_hasRaw = true;
      return appendBytes(bytes, sizeBytes, m_out.text());
    case OutputForm::Framed:
      return appendFramed(m_options.framing, bytes, sizeBytes, m_out.text());
    case OutputForm::Capture:
      m_capture->append(timeNs, bytes, sizeBytes, m_out.text());
  }
}

std::int64_t MessageSink::packetTime(const MD_Message& message, std::optional<std::int64_t> timeNs) {
  constexpr std::int64_t kStepNs = 1'000'000;
  MD_EpochNS time;
  if (m_timeField && message.get(m_timeField->id, time)) {
    if (time.get() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      throw noSuchTime(std::to_string(time.get()));
    }
    m_lastTimeNs = static_cast<std::int64_t>(time.get());
  } else {
    m_lastTimeNs = timeNs ? *timeNs : m_lastTimeNs + kStepNs;
  }
  return m_lastTimeNs;
}

void appendFramed(const Framing& framing, const std::uint8_t* bytes, std::uint32_t sizeBytes, std::string& out) {
  if (framing.sizeBytes == 2 && sizeBytes > 0xffff) {
    throw LineError(ReportKind::NotHeld, std::to_string(sizeBytes) + " bytes are too long for a length of 2 bytes");
  }
  for (unsigned i = 0; i != framing.sizeBytes; ++i) {
    const unsigned shift = 8 * (framing.isBigEndian ? framing.sizeBytes - 1U - i : i);
    out += static_cast<char>(sizeBytes >> shift & 0xff);
  }
  appendBytes(bytes, sizeBytes, out);
}

}  // namespace MD::tool
