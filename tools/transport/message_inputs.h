// The messages of all inputs of a command, as one source.
#ifndef MDMSG_MESSAGE_INPUTS_H
#define MDMSG_MESSAGE_INPUTS_H

#include <cstdint>

#include <memory>
#include <optional>

#include "base/diagnostics.h"
#include "base/output.h"
#include "transport/inputs.h"
#include "transport/message_source.h"

namespace MD::tool {

class MessageInputs final : public MessageSource {
 public:
  /// All outlive the source.
  MessageInputs(Inputs& inputs, SourceOptions options, Output& out, Reporter& reporter);

  /// An input that is truncated or cannot be read is reported, and the next one begins.
  bool next(InputMessage& message) override;

  FrameCursor* frames() noexcept override { return m_frames; }

  /// Of all captures that have been read as far as they go.
  const CaptureCounts* counts() const override { return m_counts ? &*m_counts : nullptr; }
  /// Of the last capture that was opened.
  const CaptureFormat* captureFormat() const override { return m_format ? &*m_format : nullptr; }

 private:
  bool open();
  void finish();
  std::uint64_t countMessages() noexcept;

  Inputs& m_inputs;
  SourceOptions m_options;
  Output& m_out;
  Reporter& m_reporter;
  InputBuffer* m_input = nullptr;
  std::unique_ptr<MessageSource> m_source;  // of that input
  FrameCursor* m_frames = nullptr;          // of that source
  std::uint64_t m_framesCounted = 0;
  std::uint64_t m_number = 0;  // of that input
  std::optional<CaptureCounts> m_counts;
  std::optional<CaptureFormat> m_format;
};

}  // namespace MD::tool

#endif
