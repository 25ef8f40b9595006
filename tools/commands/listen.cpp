#include <cstdint>

#include <optional>
#include <string>

#include "base/hex.h"
#include "commands/feed_commands.h"
#include "commands/taken_messages.h"
#include "transport/capture.h"

namespace MD::tool {
namespace {

/// Writes datagrams as they came.
class DatagramWriter {
 public:
  DatagramWriter(ListenOptions::Form form, Output& out) : m_form(form), m_out(out) {
    if (form == ListenOptions::Form::Capture) {
      CaptureWriter::begin(out.text());
      out.lineDone();
    }
  }

  void append(const InputMessage& datagram) {
    if (m_form == ListenOptions::Form::HexLines) {
      appendHex(datagram.data, datagram.sizeBytes, m_out.text());
      m_out.text() += '\n';
      return;
    }
    if (!m_capture || textOf(datagram.source) != m_source) {
      m_source = textOf(datagram.source);
      m_capture.emplace(datagram.source, datagram.destination);
    }
    m_capture->append(*datagram.timeNs, datagram.data, datagram.sizeBytes, m_out.text());
  }

 private:
  ListenOptions::Form m_form;
  Output& m_out;
  std::string m_source;
  std::optional<CaptureWriter> m_capture;
};

}  // namespace

void listen(const ListenOptions& options, const SelectionOptions& selection, Output& out, Reporter& reporter) {
  const Endpoint at = resolveEndpoint(options.at);
  if (options.form == ListenOptions::Form::Capture && at.address.sizeBytes != 4) {
    throw UsageError("--format pcap writes IPv4 datagrams; " + textOf(at) + " is IPv6");
  }
  UdpSource source(at, options.multicast, options.limits, out, reporter);
  const std::string name = textOf(source.endpoint());
  reporter.tell("listening on " + name);
  const std::uint32_t bufferBytes = source.receiveBufferBytes();
  if (options.limits.receiveBufferBytes.value_or(bufferBytes) > bufferBytes) {
    reporter.tell("the system grants a receive buffer of " + std::to_string(bufferBytes) + " bytes instead of " +
                  std::to_string(*options.limits.receiveBufferBytes));
  }
  reporter.setInput(name);
  const Task task{source, selection, out, reporter};
  if (options.form == ListenOptions::Form::Decoded) {
    decode(task, options.decode);
  } else {
    DatagramWriter writer(options.form, out);
    MessageReader reader(task);
    while (const InputMessage* const datagram = reader.next()) {
      attempt(task, [&] { writer.append(*datagram); });
    }
  }
  if (const std::uint64_t dropped = source.dropped()) {
    reporter.wholeInput("the system dropped " + counted(dropped, "datagram") +
                        " that arrived faster than they were read; --receive-buffer sets a larger buffer");
  }
  const std::uint64_t wanted = options.limits.datagrams;
  if (wanted != ListenLimits().datagrams && source.hasEndedEarly()) {
    reporter.wholeInput(std::to_string(source.datagrams()) + " of " + counted(wanted, "datagram") + " received");
  }
}

}  // namespace MD::tool
