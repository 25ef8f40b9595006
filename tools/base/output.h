// Standard output, or a file in its place, collected into large writes.
#ifndef MDMSG_OUTPUT_H
#define MDMSG_OUTPUT_H

#include <cstddef>

#include <iosfwd>
#include <memory>
#include <stdexcept>
#include <string>

#include "base/compression.h"
#include "base/output_file.h"

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
  /// Collects everything until takeComplete().
  Output() = default;

  /// Writes to an open file from here on. What it held before goes with the first write, or finish(), and stays when
  /// the program finds before that what it cannot do.
  void redirect(OutputFile& file) {
    m_file = &file;
    m_hasOldContents = true;
  }

  /// From here on what is written is compressed. Before anything is.
  void setCompression(const Compression& compression) { m_compressor = makeCompressor(compression); }

  /// Output that waits to be written, the current line last; append to it.
  std::string& text() noexcept { return m_text; }
  /// Completes the current line. Writes if there is enough output. @throws OutputError
  void lineDone() {
    m_complete = m_text.size();
    if (m_complete >= kEnough) {
      write(Compressor::Then::GoOn);
    }
  }
  /// Forgets the current line.
  void dropLine() { m_text.resize(m_complete); }
  /// Releases the memory that text() does not need at present.
  void releaseMemory() noexcept { m_text.shrink_to_fit(); }
  /// How much of text() is complete.
  std::size_t completeBytes() const noexcept { return m_complete; }
  /// Exchanges the complete lines for an empty text: what collected output has come to.
  void takeComplete(std::string& into);
  /// Writes all complete lines. @throws OutputError
  void flush() { write(Compressor::Then::Flush); }
  /// The same at the end, also where there was nothing to write; a file is closed. @throws OutputError
  void finish();

 private:
  static constexpr std::size_t kEnough = std::size_t{1} << 16;

  void write(Compressor::Then then);
  void dropOldContents();
  [[noreturn]] void fail(int code) const;

  std::ostream* m_out = nullptr;  ///< null for a file, and where the text is collected
  OutputFile* m_file = nullptr;   ///< in the place of the stream
  std::string m_text;
  std::size_t m_complete = 0;
  bool m_hasOldContents = false;
  std::unique_ptr<Compressor> m_compressor;  ///< null for none
  bool m_isFlushed = true;                   ///< the compressor keeps nothing to itself
  std::string m_packed;
};

}  // namespace MD::tool

#endif
