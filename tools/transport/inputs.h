// The inputs of a command, one after the other: files, and standard input.
#ifndef MDMSG_INPUTS_H
#define MDMSG_INPUTS_H

#include <cstddef>

#include <fstream>
#include <istream>
#include <optional>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "transport/input_buffer.h"

namespace MD::tool {

class Inputs {
 public:
  /// @param files  "-" is standard input, and so is an empty list
  /// @param standardInput  outlives the inputs
  /// @param isOutputStandard  whether what is made of them goes to standard output
  Inputs(std::vector<std::string> files, std::istream& standardInput, bool isOutputStandard, Reporter& reporter);

  /// The next input that can be opened, from its first byte on, or null; valid until the next call. The reporter gets
  /// its name. One that cannot be opened is reported.
  InputBuffer* next();

  /// Calls `read`, which reads from the current input. When that is truncated or fails, it is reported.
  /// @return whether it went well
  template <class Read>
  bool attempt(Read read) {
    try {
      read();
      return true;
    } catch (const InputError& error) {
      // Part of it was used.
      m_reporter.wholeInput(std::string(error.what()) + "; everything before this was processed");
    } catch (const std::ios_base::failure&) {
      m_reporter.unusable("cannot read " + pathText(m_reporter.input()));
    }
    return false;
  }

 private:
  bool openFile(const std::string& path);
  void begin(std::streambuf& source, const std::string& name, std::uint64_t sizeBytes);

  std::vector<std::string> m_files;
  std::istream& m_standardInput;
  bool m_isOutputStandard;
  Reporter& m_reporter;
  std::size_t m_next = 0;
  std::vector<char> m_fileBuffer;
  std::filebuf m_file;
  std::optional<InputBuffer> m_input;
};

}  // namespace MD::tool

#endif
