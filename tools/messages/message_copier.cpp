#include "messages/message_copier.h"

#include <cstdint>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "messages/message_sink.h"
#include "transport/capture.h"

namespace MD::tool {

void MessageCopier::begin(const CaptureFormat* format, std::string& out) {
  if (format != nullptr) {
    m_format = *format;
    appendCaptureHeader(*format, out);
  }
}

void MessageCopier::append(const InputMessage& message, std::string& out) {
  requireSameKind(message);
  if (m_format) {
    if (!message.timeNs) {
      throw LineError(ReportKind::NotHeld, "the capture has no valid timestamp for the packet");
    }
    if (message.packet->isCut) {
      throw LineError(ReportKind::NotHeld, "the packet is longer than the " + std::to_string(m_format->snapshotBytes) +
                                               " bytes of the snapshot length of the capture");
    }
    appendPacket(*message.packet, *m_format, *message.timeNs, out);
  } else if (m_options.form == InputForm::Framed) {
    appendFramed(m_options.framing, message.data, static_cast<std::uint32_t>(message.sizeBytes), out);
  } else if (m_options.form == InputForm::Raw) {
    if (m_hasRaw) {
      throw secondRaw();
    }
    m_hasRaw = true;
    appendBytes(message.data, message.sizeBytes, out);
  } else {
    out.append(message.line) += '\n';
  }
}

/// A packet of a capture with another link type would be misread, and one that is longer than the header says cut.
void MessageCopier::requireSameKind(const InputMessage& message) const {
  const auto refuse = [&](const char* what) {
    throw UsageError(pathText(*message.file) + what + " than the input before it; one output cannot hold both");
  };
  if (m_format.has_value() != (message.packet != nullptr)) {
    refuse(" is of another kind");
  }
  if (!m_format) {
    return;
  }
  const CaptureFormat& format = message.packet->format;
  if (format.link != m_format->link) {
    refuse(" has packets of another link type");
  }
  if (format.isNanosecond && !m_format->isNanosecond) {
    refuse(" has more precise timestamps");
  }
  if (m_format->snapshotBytes != 0 && message.packet->sizeBytes > m_format->snapshotBytes) {
    refuse(" has longer packets");
  }
}

void MessageCopier::tellConversion(const InputMessage& message, Reporter& reporter) {
  if (message.packet != nullptr && !message.packet->isPlainPcap && !m_isConversionTold) {
    reporter.tell(pathText(*message.file) +
                  " is written as pcap with nanosecond timestamps, without comments and interface names");
    m_isConversionTold = true;
  }
}

}  // namespace MD::tool
