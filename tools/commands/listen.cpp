#include <optional>
#include <string>

#include "base/hex.h"
#include "commands/feed_commands.h"
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

void listen(const ListenOptions& options, const Task& task) {
  const Endpoint at = resolveEndpoint(options.at);
  if (options.form == ListenOptions::Form::Capture && at.address.sizeBytes != 4) {
    throw UsageError("--format pcap writes IPv4 datagrams; " + textOf(at) + " is IPv6");
  }
  UdpSource source(at, options.multicast, options.limits, task.out, task.reporter);
  const std::string name = textOf(source.endpoint());
  task.reporter.tell("listening on " + name);
  Task live = task;
  live.inputs.live = &source;
  task.reporter.setInput(name);
  if (options.form == ListenOptions::Form::Decoded) {
    decode(live, options.decode);
  } else {
    DatagramWriter writer(options.form, task.out);
    forEachMessage(live.inputs, task.source, task.out, task.reporter, [&](const InputMessage& datagram) {
      writer.append(datagram);
      return Go::On;
    });
  }
  const std::uint64_t wanted = options.limits.datagrams;
  if (wanted != ListenLimits().datagrams && source.hasEndedEarly()) {
    task.reporter.wholeInput(std::to_string(source.datagrams()) + " of " + counted(wanted, "datagram") + " came");
  }
}

}  // namespace MD::tool
