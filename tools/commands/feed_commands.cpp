#include "commands/feed_commands.h"

#include <algorithm>
#include <thread>

#include "base/hex.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_names.h"
#include "transport/capture.h"

namespace MD::tool {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

std::string counted(std::uint64_t number, const char* what) {
  return std::to_string(number) + ' ' + what + (number == 1 ? "" : "s");
}

/// When each datagram is due.
class Pace {
 public:
  explicit Pace(const ReplayOptions& options) : m_options(options) {}

  /// @param timeNs  when it was captured
  void wait(std::optional<std::int64_t> timeNs) {
    if (m_options.perSecond || (!timeNs && m_options.speed)) {
      // What has no times of its own comes at a rate that receivers can follow.
      constexpr std::uint64_t kDefaultRate = 1000;
      m_due +=
          m_isFirst
              ? nanoseconds(0)
              : nanoseconds(std::nano::den / static_cast<std::int64_t>(m_options.perSecond.value_or(kDefaultRate)));
    } else if (m_options.speed) {
      m_due += m_isFirst ? nanoseconds(0) : scaled(*timeNs);
      // Packets may lie in a capture in another order than that of their times.
      m_lastNs = m_isFirst || m_isNewInput ? *timeNs : std::max(m_lastNs, *timeNs);
    }
    m_isFirst = false;
    m_isNewInput = false;
    std::this_thread::sleep_until(m_start + m_due);
  }

  /// What comes next may have been captured before.
  void beginInput() { m_isNewInput = true; }

 private:
  nanoseconds scaled(std::int64_t timeNs) const {
    nanoseconds gap(std::max<std::int64_t>(timeNs - m_lastNs, 0));
    if (m_options.longestGap) {
      gap = std::min(gap, *m_options.longestGap);
    }
    constexpr double kLongest = 1e18;
    return nanoseconds(
        static_cast<std::int64_t>(std::min(static_cast<double>(gap.count()) / *m_options.speed, kLongest)));
  }

  const ReplayOptions& m_options;
  Clock::time_point m_start = Clock::now();
  nanoseconds m_due{0};
  std::int64_t m_lastNs = 0;
  bool m_isFirst = true;
  bool m_isNewInput = false;
};

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

void generate(const FeedOptions& feedOptions, const SinkOptions& sinkOptions, const Task& task) {
  loadBuiltInDictionary();
  const FieldNames names;
  Feed feed(feedOptions);
  MessageSink sink(sinkOptions, names, task.out);
  while (feed.next()) {
    sink.append(feed.bytes().data(), static_cast<std::uint32_t>(feed.bytes().size()), feed.timeNs());
    task.out.lineDone();
  }
  const FeedCounts& counts = feed.counts();
  const auto damaged = [&](Damage kind) { return std::to_string(counts.damages[static_cast<std::size_t>(kind)]); };
  task.reporter.tell(counted(counts.messages, "message") + ", " + std::to_string(counts.trades) + " of them " +
                     (counts.trades == 1 ? "a trade" : "trades"));
  if (const std::uint64_t all = counts.messages - counts.damages[0]; all != 0) {
    task.reporter.tell(std::to_string(all) + " damaged: " + damaged(Damage::CutShort) + " truncated, " +
                       damaged(Damage::UnknownField) + " bad by an unknown field, " + damaged(Damage::RepeatedField) +
                       " bad by a repeated field, " + damaged(Damage::FirstByte) + " not ours");
  }
}

void replay(const ReplayOptions& options, const Task& task) {
  UdpSender sender(resolveEndpoint(options.to), options.multicast);
  SourceOptions source = task.source;
  source.takesForeign = true;
  std::uint64_t seen = 0;
  std::uint64_t sent = 0;
  std::uint64_t bytes = 0;
  const Clock::time_point start = Clock::now();
  Pace pace(options);
  if (task.selection.limit != 0) {
    const auto sendOne = [&](const InputMessage& message) {
      if (seen++ < task.selection.skip) {
        return Go::On;
      }
      pace.wait(message.timeNs);
      sender.send(message.data, message.sizeBytes);
      bytes += message.sizeBytes;
      return ++sent == task.selection.limit ? Go::NoFurther : Go::On;
    };
    forEachMessage(task.inputs, source, task.out, task.reporter, sendOne,
                   [&](const MessageSource&) { pace.beginInput(); });
  }
  const auto tookMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  task.reporter.tell("sent " + counted(sent, "datagram") + ", " + counted(bytes, "byte") + ", in " +
                     std::to_string(tookMs) + " ms");
}

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
