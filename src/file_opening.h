#ifndef MD_SRC_FILE_OPENING_H
#define MD_SRC_FILE_OPENING_H

#include <cerrno>

#include <new>

namespace MD::detail {

/// Opens a file with `open()`, which tells whether it could. That there is no memory to open it with must not look as
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

}  // namespace MD::detail

#endif
