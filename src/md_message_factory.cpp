#include <cstdlib>

#include <atomic>
#include <fstream>
#include <string>

#include "file_opening.h"
#include "md/detail/encodings.h"
#include "md/md_datatypes.h"
#include "md/md_message.h"

namespace MD {

// Their objects' memory is recycled as one kind.
static_assert(sizeof(IterMap) == sizeof(MD_Message) && sizeof(mInt) == sizeof(MD_Message) &&
              sizeof(MsgT) == sizeof(MD_Message));

namespace {

// The encoding of createPreferred(). Each thread writes the value read from the same file.
// Relaxed: the code is all that threads share.
std::atomic<std::uint8_t> g_preferredCode{ENCODINGS::MSGT};

/// Reads the preference file; a missing, unreadable or invalid value leaves the id unchanged.
std::uint8_t readPreferredCode() {
  const std::string path = detail::findConfiguration("message/preferred.conf");
  std::ifstream file;
  const auto open = [&] {
    file.open(path);
    return file.is_open();
  };
  std::string token;
  if (detail::mayBeOpened(path, detail::PathOrigin::Search) && detail::openFile(open) && file >> token) {
    // The range is tested on the low byte alone: 300 passes as 44, which no encoding has.
    const auto code = static_cast<std::uint8_t>(std::strtoll(token.c_str(), nullptr, 10));
    if (static_cast<std::uint8_t>(code - 1) < ENCODINGS::MSGT) {
      g_preferredCode.store(code, std::memory_order_relaxed);
    }
  }
  return g_preferredCode.load(std::memory_order_relaxed);
}

}  // namespace

std::unique_ptr<MD_Message> MD_Message::createFromPB(std::uint8_t code) {
  switch (code) {
#define MD_CASE(Class, CODE, code) \
  case ENCODINGS::CODE:            \
    return std::make_unique<Class>();
    MD_ENCODINGS(MD_CASE)
#undef MD_CASE
    default:
      return nullptr;
  }
}

std::unique_ptr<MD_Message> MD_Message::createFromBytes(const std::uint8_t* bytes, std::uint32_t sizeBytes,
                                                        const Allocator& allocator) {
  if (bytes == nullptr || sizeBytes == 0) {
    return nullptr;
  }
  std::unique_ptr<MD_Message> message;
  switch (bytes[0]) {
#define MD_CASE(Class, CODE, code)       \
  case ENCODINGS::CODE:                  \
    message.reset(new Class(allocator)); \
    break;
    MD_ENCODINGS(MD_CASE)
#undef MD_CASE
    default:
      return nullptr;
  }
  message->setBinaryImpl(bytes, sizeBytes);
  return message;
}

std::unique_ptr<MD_Message> MD_Message::createFromBytes(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
  return createFromBytes(bytes, sizeBytes, DEFAULT_ALLOCATOR);
}

std::unique_ptr<MD_Message> MD_Message::createPreferred(bool cached) {
  if (!cached) {
    return createFromPB(readPreferredCode());
  }
  static const std::uint8_t code = readPreferredCode();
  return createFromPB(code);
}

}  // namespace MD
