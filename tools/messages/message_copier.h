// Messages as they came, into the kind of file that they came in.
#ifndef MDMSG_MESSAGE_COPIER_H
#define MDMSG_MESSAGE_COPIER_H

#include <optional>
#include <string>

#include "base/diagnostics.h"
#include "transport/message_source.h"

namespace MD::tool {

/// Hex lines stay lines, streams keep their framing, packets their link headers and times. What is pcapng becomes pcap
/// with nanoseconds.
class MessageCopier {
 public:
  explicit MessageCopier(const SourceOptions& options) : m_options(options) {}

  /// Appends what a file begins with. @param format  of captures; null for messages of other inputs
  void begin(const CaptureFormat* format, std::string& out);

  /// Appends a message. @throws LineError when the output cannot hold it
  /// @throws UsageError when it is from another kind of file than the one that begin() was called with
  void append(const InputMessage& message, std::string& out);

  /// @throws UsageError when append() does
  void requireSameKind(const InputMessage& message) const;

  /// Reports, once, that input of other formats than pcap is not written unchanged.
  void tellConversion(const InputMessage& message, Reporter& reporter);

 private:
  SourceOptions m_options;
  std::optional<CaptureFormat> m_format;
  bool m_hasRaw = false;
  bool m_isConversionTold = false;
};

}  // namespace MD::tool

#endif
