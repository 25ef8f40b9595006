// Standard output, or a file in its place, collected into large writes.
#ifndef MDMSG_OUTPUT_H
#define MDMSG_OUTPUT_H

#include <cstddef>

#include <iosfwd>
#include <stdexcept>
#include <string>
#include <utility>

namespace MD::tool {

/// Nothing more can be written.
class OutputError : public std::runtime_error {
 public:
  /// @param name  of the output
  /// @param code  the C library's error number
  OutputError(const std::string& name, int code);

  /// The reader has gone, which is its right and no error of ours.
  bool isBrokenPipe() const noexcept { return m_isBrokenPipe; }

 private:
  bool m_isBrokenPipe;
};

class Output {
 public:
  explicit Output(std::ostream& out) : m_out(&out) {}

  /// Writes to a file from here on, open to append. What it held goes with the first write, or finish(), and stays when
  /// the program finds before that what it cannot do.
  void redirect(std::ostream& file, std::string path) {
    m_out = &file;
    m_name = std::move(path);
    m_hasOldContents = true;
  }

  /// What waits to be written, the line at hand last; append to it.
  std::string& text() noexcept { return m_text; }
  /// The line at hand is complete. Writes when enough has come together. @throws OutputError
  void lineDone() {
    m_complete = m_text.size();
    if (m_complete >= kEnough) {
      flush();
    }
  }
  /// Forgets the line at hand.
  void dropLine() { m_text.resize(m_complete); }
  /// Writes all complete lines. @throws OutputError
  void flush();
  /// The same at the end, also where there was nothing to write. @throws OutputError
  void finish();

 private:
  static constexpr std::size_t kEnough = std::size_t{1} << 16;

  void dropOldContents();

  std::ostream* m_out;
  std::string m_name = "standard output";
  std::string m_text;
  std::size_t m_complete = 0;
  bool m_hasOldContents = false;
};

}  // namespace MD::tool

#endif
