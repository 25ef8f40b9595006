#include "transport/message_inputs.h"

#include <utility>

#include "transport/frame_cursor.h"
#include "transport/open_messages.h"

namespace MD::tool {

MessageInputs::MessageInputs(Inputs& inputs, SourceOptions options, Output& out, Reporter& reporter)
    : m_inputs(inputs), m_options(std::move(options)), m_out(out), m_reporter(reporter) {}

bool MessageInputs::next(InputMessage& message) {
  while (m_source != nullptr || open()) {
    bool isThere = false;
    m_inputs.attempt([&] { isThere = m_source->next(message); });
    if (isThere) {
      if (message.sizeBytes > m_options.longestMessageBytes) {
        throw tooLongToRead("the message", m_options.longestMessageBytes);
      }
      message.input = m_number;
      m_reporter.advance(m_input->sourceBytes(), countMessages());
      return true;
    }
    finish();
  }
  return false;
}

/// Opens the next input that can be read. @return false when there is none
bool MessageInputs::open() {
  while ((m_input = m_inputs.next()) != nullptr) {
    ++m_number;
    m_inputs.attempt([&] {
      try {
        m_source = openMessages(*m_input, m_options, m_out, m_reporter);
      } catch (const InputError& error) {
        m_reporter.wholeInput(error.what());
      }
    });
    if (m_source != nullptr) {
      m_frames = m_source->frames();
      m_framesCounted = 0;
      if (const CaptureFormat* const format = m_source->captureFormat()) {
        m_format = *format;
      }
      return true;
    }
  }
  return false;
}

void MessageInputs::finish() {
  m_source->reportWhole();
  if (const CaptureCounts* const counts = m_source->counts()) {
    m_counts = m_counts.value_or(CaptureCounts()) + *counts;
  }
  m_frames = nullptr;
  m_source.reset();
}

/// How many messages have been read since the last call.
std::uint64_t MessageInputs::countMessages() noexcept {
  return m_frames == nullptr ? 1 : m_frames->number() - std::exchange(m_framesCounted, m_frames->number());
}

}  // namespace MD::tool
