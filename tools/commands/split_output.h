// Messages in one file per value of their fields.
#ifndef MDMSG_SPLIT_OUTPUT_H
#define MDMSG_SPLIT_OUTPUT_H

#include <cstddef>

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "base/compression.h"
#include "base/output_file.h"
#include "commands/commands.h"
#include "messages/file_names.h"

namespace MD::tool {

/// Collects what goes into each file and writes it in blocks, one file being open at a time: neither the number of
/// values nor their order costs descriptors, and memory is bounded. Compressed, each block is a member or frame.
class SplitOutput {
 public:
  /// @throws UsageError when an option cannot be used
  SplitOutput(const SplitOptions& options, const FieldNames& names);
  ~SplitOutput();
  SplitOutput(const SplitOutput&) = delete;
  SplitOutput& operator=(const SplitOutput&) = delete;

  /// @param header  what a file begins with
  /// @param record  the message as it goes into its file
  /// @throws LineError when the message cannot be in a file
  /// @throws UsageError when there are too many files, or one cannot be made
  /// @throws OutputError
  void append(const InputMessage& message, std::string_view header, std::string_view record);

  /// Writes what is left. If the process ends before, that is written then. @throws OutputError
  void finish();

 private:
  static constexpr std::size_t kBlockBytes = std::size_t{1} << 16;
  static constexpr std::size_t kMostBytes = std::size_t{1} << 24;

  struct File {
    OutputFile file;
    std::string text;
    bool hasOldContents = true;
  };

  void writeBeforeEnd() noexcept;
  File& fileOf(const std::string& path, std::string_view header);
  void write(File& file);
  void writeAll();

  const SplitOptions& m_options;
  std::timed_mutex m_mutex;  // for all that follows
  FileTemplate m_template;
  std::unique_ptr<Compressor> m_compressor;
  std::unordered_map<std::string, std::unique_ptr<File>> m_files;
  std::size_t m_waitingBytes = 0;
  std::string m_path;
  std::string m_packed;
};

}  // namespace MD::tool

#endif
