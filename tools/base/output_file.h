// A file that the program writes.
#ifndef MDMSG_OUTPUT_FILE_H
#define MDMSG_OUTPUT_FILE_H

#include <cstdint>

#include <atomic>
#include <streambuf>
#include <string>

namespace MD::tool {

/// Created by this run, or an existing file that may be overwritten. Everything goes by the descriptor: what
/// another program puts in the place of the path meanwhile is neither written nor emptied nor removed.
///
/// open(), isPartial() and removeIfEmpty() may be called by different threads one after the other, the latter two also
/// while the file is being written.
class OutputFile final : public std::streambuf {
 public:
  OutputFile() = default;
  ~OutputFile() override;

  /// Makes the file, or, where `isForced`, opens one that is there. What that holds stays for now.
  /// @throws UsageError if it exists and may not be overwritten, and if it cannot be created or opened
  void open(const std::string& path, bool isForced);
  bool isOpen() const noexcept { return m_descriptor != kNone; }
  const std::string& path() const noexcept { return m_path; }

  /// Whether `path` leads to this file.
  bool isAt(const std::string& path) const;

  /// Removes what the file held before. @return an error number, 0 for none
  int dropOldContents();
  /// @return an error number, 0 for none: some systems report only then that something could not be written
  int close();

  /// Closes the file for a while, so that many can be written in turns. @return an error number, 0 for none
  int pause();
  /// Continues after the bytes that have been written. @return an error number, 0 for none; EEXIST when another file is
  /// there now
  int resume();

  /// Whether something has been written, and not all: the file has not been closed.
  bool isPartial() const noexcept { return m_isPartial; }
  /// Removes the file if this run made it and it holds nothing. It would be in the way of the next try.
  void removeIfEmpty();

 protected:
  std::streamsize xsputn(const char* bytes, std::streamsize count) override;
  int_type overflow(int_type c) override;

 private:
  static constexpr int kNone = -1;

  std::string m_path;
  int m_descriptor = kNone;
  std::uint64_t m_device = 0;  // with the next one: which file it is
  std::uint64_t m_number = 0;
  bool m_isMade = false;
  bool m_isRegular = false;
  std::atomic<bool> m_isPartial{false};
};

}  // namespace MD::tool

#endif
