#include <cstdio>
#include <cstring>
#if defined(__linux__)
#include <stdio_ext.h>
#endif

#include <algorithm>
#include <array>
#include <exception>
#include <initializer_list>
#include <limits>
#include <optional>
#include <sstream>
#include <utility>
#include <vector>

#include "base/hex.h"
#include "transport/capture.h"

#if defined(MDMSG_HAS_PCAP)
#include <pcap/pcap.h>
#endif

namespace MD::tool {

#if defined(MDMSG_HAS_PCAP)

namespace {

/// Numbers of packets, as "3, 17-20, 40".
class PacketNumbers {
 public:
  void add(std::uint64_t number) {
    if (!m_runs.empty() && m_runs.back().last + 1 == number) {
      m_runs.back().last = number;
    } else if (m_runs.size() == kMostRuns) {
      m_isCut = true;
    } else {
      m_runs.push_back({number, number});
    }
  }

  std::string text() const {
    std::string text;
    for (const Run& run : m_runs) {
      text += (text.empty() ? "" : ", ") + std::to_string(run.first);
      if (run.last != run.first) {
        text += '-' + std::to_string(run.last);
      }
    }
    return m_isCut ? text + ", ..." : text;
  }

 private:
  static constexpr std::size_t kMostRuns = 20;
  struct Run {
    std::uint64_t first;
    std::uint64_t last;
  };
  std::vector<Run> m_runs;
  bool m_isCut = false;
};

/// The input as a stream of the C library, which is what the capture library reads. No exception may pass through
/// either: one of the input is kept until the read has come back.
class StdioInput {
 public:
  StdioInput(InputBuffer& in, Output& out) : m_in(in), m_out(out) {}

  std::FILE* open() {
#if defined(__linux__)
    cookie_io_functions_t functions{};
    functions.read = [](void* self, char* to, std::size_t size) {
      return static_cast<ssize_t>(static_cast<StdioInput*>(self)->read(to, size));
    };
    // Returns the stream's position, and no more than that.
    functions.seek = [](void* self, off64_t* offset, int whence) {
      if (whence != SEEK_CUR || *offset != 0) {
        return -1;
      }
      *offset = static_cast<off64_t>(static_cast<StdioInput*>(self)->m_read);
      return 0;
    };
    std::FILE* const file = fopencookie(this, "rb", functions);
#else
    std::FILE* const file = funopen(
        this,
        [](void* self, char* to, int size) {
          return static_cast<int>(static_cast<StdioInput*>(self)->read(to, static_cast<std::size_t>(size)));
        },
        nullptr, nullptr, nullptr);
#endif
    if (file == nullptr) {
      throw std::bad_alloc();
    }
#if defined(__linux__)
    // One thread reads it; locks would cost as much as the reads.
    static_cast<void>(__fsetlocking(file, FSETLOCKING_BYCALLER));
#endif
    return file;
  }

  void rethrow() const {
    if (m_error != nullptr) {
      std::rethrow_exception(m_error);
    }
  }

 private:
  std::ptrdiff_t read(char* to, std::size_t size) noexcept {
    try {
      if (m_in.in_avail() <= 0) {
        m_out.flush();
      }
      const std::string_view next = m_in.peek(1);
      const std::streamsize ready = std::max<std::streamsize>(m_in.in_avail(), 0);
      const auto count = next.empty() ? 0 : m_in.sgetn(to, std::min(ready, static_cast<std::streamsize>(size)));
      m_read += static_cast<std::uint64_t>(count);
      return count;
    } catch (...) {
      m_error = std::current_exception();
      return -1;
    }
  }

  InputBuffer& m_in;
  Output& m_out;
  std::uint64_t m_read = 0;
  std::exception_ptr m_error;
};

/// Whether these words are a test of a port, a host or a net: `udp dst port 9000`.
bool isPlainTest(const std::vector<std::string>& words) {
  const auto isOneOf = [](const std::string& word, std::initializer_list<const char*> list) {
    return std::find(list.begin(), list.end(), word) != list.end();
  };
  auto word = words.begin();
  if (word != words.end() && isOneOf(*word, {"ip", "ip6", "udp", "tcp"})) {
    ++word;
  }
  if (word != words.end() && isOneOf(*word, {"src", "dst"})) {
    ++word;
  }
  if (words.end() - word != 2 || !isOneOf(*word, {"port", "portrange", "host", "net"})) {
    return false;
  }
  constexpr std::size_t kLongestValue = 80;
  const std::string& value = *++word;
  return value.size() <= kLongestValue && value[0] >= '0' && value[0] <= '9' &&
         value.find_first_not_of("0123456789abcdefABCDEF.:/-") == std::string::npos;
}

/// The alternatives of a filter that is a list of ports, hosts or nets with "or" between them; none for any other
/// filter. The capture library takes time for an expression that grows with its square at least, most of it to
/// optimise, but each alternative of such a list means the same alone.
std::vector<std::string> alternativesOf(const std::string& expression) {
  std::vector<std::string> alternatives;
  std::vector<std::string> alternative;
  const auto end = [&] {
    const bool isPlain = isPlainTest(alternative);
    std::string& text = alternatives.emplace_back();
    for (const std::string& word : alternative) {
      text += (text.empty() ? "" : " ") + word;
    }
    alternative.clear();
    return isPlain;
  };
  std::istringstream words(expression);
  for (std::string word; words >> word;) {
    if (word != "or" && word != "||") {
      alternative.push_back(std::move(word));
    } else if (!end()) {
      return {};
    }
  }
  return end() ? alternatives : std::vector<std::string>();
}

/// What the first bytes of a plain pcap file say; nothing for other bytes.
std::optional<CaptureFormat> formatOf(std::string_view head) {
  constexpr std::size_t kHeaderBytes = 24;
  if (head.size() < kHeaderBytes) {
    return std::nullopt;
  }
  CaptureFormat format;
  const auto number = [&](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i != 4; ++i) {
      value = value << 8 | static_cast<std::uint8_t>(head[at + (format.isBigEndian ? i : 3 - i)]);
    }
    return value;
  };
  for (const bool isBigEndian : {false, true}) {
    format.isBigEndian = isBigEndian;
    const std::uint32_t magic = number(0);
    format.isNanosecond = magic == 0xa1b23c4d;
    if (format.isNanosecond || magic == 0xa1b2c3d4) {
      format.zone = number(8);
      format.significantFigures = number(12);
      format.snapshotBytes = number(16);
      format.link = number(20);
      return format;
    }
  }
  return std::nullopt;
}

/// An open capture with its filter.
class OpenCapture {
 public:
  OpenCapture(std::FILE* file, const StdioInput& input) {
    char text[PCAP_ERRBUF_SIZE] = "";
    m_capture = pcap_fopen_offline_with_tstamp_precision(file, PCAP_TSTAMP_PRECISION_NANO, text);
    if (m_capture == nullptr) {
      static_cast<void>(std::fclose(file));  // it was only read
      input.rethrow();
      throw InputError("not a readable capture: " + printable(text));
    }
  }
  ~OpenCapture() {
    for (bpf_program& program : m_filter) {
      pcap_freecode(&program);
    }
    pcap_close(m_capture);
  }
  OpenCapture(const OpenCapture&) = delete;
  OpenCapture& operator=(const OpenCapture&) = delete;

  void setFilter(const std::string& expression) {
    constexpr std::size_t kAlternativesPerProgram = 32;
    const std::vector<std::string> alternatives = alternativesOf(expression);
    if (alternatives.size() <= kAlternativesPerProgram) {
      return addProgram(expression, expression);
    }
    for (std::size_t i = 0; i < alternatives.size(); i += kAlternativesPerProgram) {
      std::string part;
      for (std::size_t j = i; j != std::min(alternatives.size(), i + kAlternativesPerProgram); ++j) {
        part += (part.empty() ? "" : " or ") + alternatives[j];
      }
      addProgram(part, expression);
    }
  }

  /// @return false at the end
  bool next(const StdioInput& input) {
    const int code = pcap_next_ex(m_capture, &m_header, &m_bytes);
    if (code == 1) {
      return true;
    }
    input.rethrow();
    if (code != PCAP_ERROR_BREAK) {
      throw InputError(error());
    }
    return false;
  }

  bool isLetThrough() const {
    const auto takes = [this](const bpf_program& program) {
      return pcap_offline_filter(&program, m_header, m_bytes) != 0;
    };
    return m_filter.empty() || std::any_of(m_filter.begin(), m_filter.end(), takes);
  }

  const std::uint8_t* bytes() const noexcept { return m_bytes; }
  std::uint32_t capturedBytes() const noexcept { return m_header->caplen; }
  std::uint32_t wireBytes() const noexcept { return m_header->len; }
  /// Empty when the capture says one that 64 bits of nanoseconds since 1970 do not reach.
  std::optional<std::int64_t> timeNs() const noexcept {
    constexpr std::int64_t kNsPerSecond = 1'000'000'000;
    constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int64_t>::max() / kNsPerSecond - 1;
    std::int64_t seconds = m_header->ts.tv_sec;
    if (seconds < 0 && seconds >= std::numeric_limits<std::int32_t>::min() && !isPcapng()) {
      // The 32 bits of pcap have no sign, but libpcap gives them one.
      seconds += std::int64_t{1} << 32;
    }
    // With nanosecond timestamps the smaller part holds nanoseconds.
    const std::int64_t ns = m_header->ts.tv_usec;
    if (seconds < 0 || seconds > kMostSeconds || ns < 0 || ns >= kNsPerSecond) {
      return std::nullopt;
    }
    return seconds * kNsPerSecond + ns;
  }
  int link() const { return pcap_datalink(m_capture); }
  /// The same as files have it.
  std::uint32_t fileLink() const {
    constexpr std::uint32_t kRawInFiles = 101;
    return link() == kLinkRaw || link() == kLinkRawOpenBsd ? kRawInFiles : static_cast<std::uint32_t>(link());
  }
  std::string linkName() const {
    const char* const name = pcap_datalink_val_to_name(link());
    return name != nullptr ? name : std::to_string(link());
  }
  std::uint64_t position() const {
    const long position = std::ftell(pcap_file(m_capture));
    return position > 0 ? static_cast<std::uint64_t>(position) : 0;
  }

 private:
  /// @param whole  the expression that `part` is a part of
  void addProgram(const std::string& part, const std::string& whole) {
    constexpr std::size_t kLongestOptimised = 2000;
    bpf_program program{};
    if (pcap_compile(m_capture, &program, part.c_str(), part.size() <= kLongestOptimised ? 1 : 0,
                     PCAP_NETMASK_UNKNOWN) != 0) {
      throw UsageError("--filter " + inQuotes(whole) + ": " + error());
    }
    m_filter.push_back(program);
  }

  bool isPcapng() const noexcept { return pcap_major_version(m_capture) == 1; }
  std::string error() const { return printable(pcap_geterr(m_capture)); }

  pcap_t* m_capture;
  std::vector<bpf_program> m_filter;  // a packet that one of them accepts is selected
  pcap_pkthdr* m_header = nullptr;
  const u_char* m_bytes = nullptr;
};

class CaptureSource : public MessageSource {
 public:
  CaptureSource(InputBuffer& in, const SourceOptions& options, Output& out, Reporter& reporter)
      : m_options(options),
        m_takesPackets(options.takesPackets && !options.port && !options.group),
        m_reporter(reporter),
        m_format(formatOf(headOf(in, out))),
        m_input(in, out),
        m_capture(m_input.open(), m_input) {
    m_packet.isPlainPcap = m_format.has_value();
    if (!m_format) {
      m_format.emplace().link = m_capture.fileLink();
    }
    m_packet.format = *m_format;
    if (!isKnownLinkType(m_capture.link())) {
      throw InputError("unsupported link type of its packets: " + m_capture.linkName());
    }
    if (!options.filter.empty()) {
      m_capture.setFilter(options.filter);
    }
  }

  bool next(InputMessage& message) override {
    while (nextPacket()) {
      if (!m_capture.isLetThrough()) {
        ++m_counts.notSelected;
        continue;
      }
      m_packet.data = m_capture.bytes();
      m_packet.sizeBytes = m_capture.capturedBytes();
      m_packet.wireBytes = m_capture.wireBytes();
      m_packet.isCut = m_packet.isPlainPcap && m_capture.position() > m_start + kPacketHeaderBytes + m_packet.sizeBytes;
      const Packet packet = readPacket(m_capture.link(), m_packet.data, m_packet.sizeBytes);
      message = {};
      message.timeNs = m_capture.timeNs();
      message.packet = &m_packet;
      if (!isDatagram(packet)) {
        if (m_takesPackets) {
          return true;
        }
        continue;
      }
      ++m_counts.datagrams;
      message.data = packet.payload;
      message.sizeBytes = packet.payloadBytes;
      message.source = packet.source;
      message.destination = packet.destination;
      message.hasEndpoints = true;
      if (!hasEncodingCode(message)) {
        countForeign(message);
        if (!m_options.takesForeign) {
          continue;
        }
      }
      return true;
    }
    return false;
  }

  void reportWhole() override {
    if (m_takesPackets) {
      return;
    }
    if (m_counts.fragments != 0) {
      m_reporter.wholeInput(counted(m_counts.fragments, "packet is a fragment", "packets are fragments") +
                            ", which are not reassembled (packets " + m_fragmentNumbers.text() + ')');
    }
    if (m_counts.foreign != 0 && !m_options.takesForeign) {
      m_reporter.wholeInput(std::to_string(m_counts.foreign) + " of " +
                            counted(m_counts.datagrams, "datagram has", "datagrams have") +
                            " an unknown encoding byte (packets " + m_foreignNumbers.text() + "): " + firstBytes());
    }
    if (m_counts.datagrams == 0) {
      m_reporter.wholeInput("no UDP datagram" +
                            std::string(m_options.selectsDatagrams() ? " that matches the options" : "") + " in " +
                            counted(m_counts.packets, "packet", "packets") + others());
    }
  }

  const CaptureCounts* counts() const override { return &m_counts; }
  const CaptureFormat* captureFormat() const override { return &*m_format; }

 private:
  /// As many first bytes as a pcap file has in front of its packets.
  static std::string_view headOf(InputBuffer& in, Output& out) {
    out.flush();
    return in.peek(24);
  }

  bool nextPacket() {
    m_start = m_capture.position();
    m_reporter.setPlace({Place::Kind::Packet, m_counts.packets + 1, m_start});
    try {
      if (!m_capture.next(m_input)) {
        return false;
      }
    } catch (const InputError& error) {
      throw InputError("packet " + std::to_string(m_counts.packets + 1) + " (byte " + std::to_string(m_start) +
                       ") cannot be read: " + error.what());
    }
    ++m_counts.packets;
    return true;
  }

  /// Whether the packet is one that counts; if not it is counted as what it is.
  /// @throws LineError when it is a part of one, or broken
  bool isDatagram(const Packet& packet) {
    switch (packet.kind) {
      case PacketKind::Datagram:
        if (!isSelected(packet)) {
          ++m_counts.notSelected;
          return false;
        }
        return true;
      case PacketKind::CutShort:
        if (!isSelected(packet)) {
          ++m_counts.notSelected;
          return false;
        }
        ++m_counts.cutShort;
        if (m_takesPackets) {
          return false;
        }
        throw LineError("the capture contains only a part of this datagram; skipped");
      case PacketKind::Malformed:
        ++m_counts.malformed;
        if (m_takesPackets) {
          return false;
        }
        throw LineError(std::string("malformed packet: ") + packet.reason);
      case PacketKind::Fragment:
        ++m_counts.fragments;
        m_fragmentNumbers.add(m_counts.packets);
        return false;
      case PacketKind::OtherTransport:
        ++(packet.protocol == kTcp ? m_counts.tcp : m_counts.otherTransport);
        return false;
      case PacketKind::NotIp:
        break;
    }
    ++m_counts.notIp;
    return false;
  }

  bool isSelected(const Packet& packet) const {
    return (!m_options.port || packet.destination.port == *m_options.port) &&
           (!m_options.group || packet.destination.address == *m_options.group);
  }

  void countForeign(const InputMessage& message) {
    ++m_counts.foreign;
    m_foreignNumbers.add(m_counts.packets);
    ++(message.sizeBytes == 0 ? m_empty : m_foreignFirstBytes[message.data[0]]);
  }

  /// The first bytes of unrecognised datagrams, the most frequent first.
  std::string firstBytes() const {
    std::vector<std::uint8_t> bytes;
    for (std::size_t byte = 0; byte != m_foreignFirstBytes.size(); ++byte) {
      if (m_foreignFirstBytes[byte] != 0) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
      }
    }
    std::stable_sort(bytes.begin(), bytes.end(), [this](std::uint8_t a, std::uint8_t b) {
      return m_foreignFirstBytes[a] > m_foreignFirstBytes[b];
    });
    constexpr std::size_t kMost = 5;
    std::string text;
    for (std::size_t i = 0; i != std::min(bytes.size(), kMost); ++i) {
      text += text.empty() ? "byte " : ", ";
      appendHex(&bytes[i], 1, text);
      text += " (" + std::to_string(m_foreignFirstBytes[bytes[i]]) + ')';
    }
    if (bytes.size() > kMost) {
      text += ", ...";
    }
    if (m_empty != 0) {
      text += (text.empty() ? "empty (" : ", empty (") + std::to_string(m_empty) + ')';
    }
    return text;
  }

  /// What the packets are that hold no datagram.
  std::string others() const {
    std::string text;
    const auto add = [&](std::uint64_t count, const char* what) {
      if (count != 0) {
        text += (text.empty() ? " (" : ", ") + std::to_string(count) + ' ' + what;
      }
    };
    add(m_counts.notSelected, "not selected");
    add(m_counts.tcp, "TCP");
    add(m_counts.otherTransport, "of other protocols");
    add(m_counts.notIp, "not IP");
    add(m_counts.fragments, "fragments");
    add(m_counts.cutShort, "truncated");
    add(m_counts.malformed, "broken");
    return text.empty() ? text : text + ')';
  }

  static constexpr std::uint8_t kTcp = 6;
  static constexpr std::uint64_t kPacketHeaderBytes = 16;

  SourceOptions m_options;
  bool m_takesPackets;
  Reporter& m_reporter;
  std::optional<CaptureFormat> m_format;
  CapturedPacket m_packet;
  std::uint64_t m_start = 0;  // of the packet in the input
  StdioInput m_input;
  OpenCapture m_capture;
  CaptureCounts m_counts;
  PacketNumbers m_foreignNumbers;
  PacketNumbers m_fragmentNumbers;
  std::array<std::uint64_t, 256> m_foreignFirstBytes{};
  std::uint64_t m_empty = 0;
};

}  // namespace

std::unique_ptr<MessageSource> openCapture(InputBuffer& in, const SourceOptions& options, Output& out,
                                           Reporter& reporter) {
  return std::make_unique<CaptureSource>(in, options, out, reporter);
}

#else

std::unique_ptr<MessageSource> openCapture(InputBuffer&, const SourceOptions&, Output&, Reporter&) {
  throw UsageError("captures cannot be read: this mdmsg was built without libpcap");
}

#endif

}  // namespace MD::tool
