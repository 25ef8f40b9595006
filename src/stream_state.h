#ifndef MD_SRC_STREAM_STATE_H
#define MD_SRC_STREAM_STATE_H

#include <ios>
#include <ostream>

namespace MD::detail {

/// Gives a stream back with the flags, fill and width it came with; in between the width is 0, so that a caller's
/// width pads no part of a print-out.
class StreamState {
 public:
  explicit StreamState(std::ostream& stream)
      : m_stream(stream), m_flags(stream.flags()), m_fill(stream.fill()), m_width(stream.width(0)) {}
  ~StreamState() {
    m_stream.flags(m_flags);
    m_stream.fill(m_fill);
    m_stream.width(m_width);
  }
  StreamState(const StreamState&) = delete;
  StreamState& operator=(const StreamState&) = delete;

 private:
  std::ostream& m_stream;
  std::ios_base::fmtflags m_flags;
  char m_fill;
  std::streamsize m_width;
};

}  // namespace MD::detail

#endif
