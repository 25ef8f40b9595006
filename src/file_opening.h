#ifndef MD_SRC_FILE_OPENING_H
#define MD_SRC_FILE_OPENING_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>

#include <new>
#include <string>

#include "md/md_file_search.h"

namespace MD::detail {

/// Opens a file with `open()`, which returns whether it could. That there is no memory to open it with must not look as
/// if there were no file.
/// @throws std::bad_alloc
template <class Open>
bool openFile(Open open) {
  errno = 0;
  const bool isOpen = open();
  if (!isOpen && errno == ENOMEM) {
    throw std::bad_alloc();
  }
  return isOpen;
}

/// Who named a file. One that the caller names may be a pipe, and the caller has a program write to it. What
/// the search found is read only if it is a regular file: a pipe there would block a program that does not expect it.
enum class PathOrigin { Caller, Search };

/// Whether the file is of a kind to be opened; a missing one is, so that opening it reports why it cannot be. A
/// directory is not: opening one succeeds where reading from it then fails in ways that look like an empty or endless
/// file. Asked of the C runtime, which reads a narrow path as opening it does; std::filesystem may take it for another
/// encoding.
inline bool mayBeOpened(const std::string& path, PathOrigin origin) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    return true;
  }
  const auto kind = status.st_mode & S_IFMT;
  return kind == S_IFREG || (origin == PathOrigin::Caller && kind != S_IFDIR);
}

/// The file of a name on the configuration search path; empty for none.
inline std::string findConfiguration(const char* name) { return file_search(name, CONFIG_PATH, nullptr, "Korvane"); }

}  // namespace MD::detail

#endif
