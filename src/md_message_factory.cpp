#include <cstdlib>

#include <atomic>
#include <fstream>
#include <string>

#include "file_opening.h"
#include "md/md_datatypes.h"
#include "md/md_itermap.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace MD {

// Their objects' memory is recycled as one kind.
static_assert(sizeof(IterMap) == sizeof(MD_Message) && sizeof(mInt) == sizeof(MD_Message) &&
              sizeof(MsgT) == sizeof(MD_Message));

namespace {

// What createPreferred() makes. Each thread writes what it read from the same file.
std::atomic<std::uint8_t> g_preferredCode{ENCODINGS::MSGT};

/// Reads the preference file; what cannot be read or is out of range leaves the code as it is.
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

template <class Encoding>
std::unique_ptr<MD_Message> parsed(std::unique_ptr<Encoding> message, const std::uint8_t* bytes,
                                   std::uint32_t sizeBytes) {
  message->setBinaryImpl(bytes, sizeBytes);
  return message;
}

}  // namespace

std::unique_ptr<MD_Message> MD_Message::createFromPB(std::uint8_t code) {
  switch (code) {
    case ENCODINGS::ITERMAP:
      return std::make_unique<IterMap>();
    case ENCODINGS::MINT:
      return std::make_unique<mInt>();
    case ENCODINGS::MSGT:
      return std::make_unique<MsgT>();
    default:
      return nullptr;
  }
}

std::unique_ptr<MD_Message> MD_Message::createFromBytes(const std::uint8_t* bytes, std::uint32_t sizeBytes,
                                                        const Allocator& allocator) {
  if (bytes == nullptr || sizeBytes == 0) {
    return nullptr;
  }
  switch (bytes[0]) {
    case ENCODINGS::ITERMAP:
      return parsed(std::unique_ptr<IterMap>(new IterMap(DEFAULT_ALLOCATOR)), bytes, sizeBytes);
    case ENCODINGS::MINT:
      return parsed(std::unique_ptr<mInt>(new mInt(allocator)), bytes, sizeBytes);
    case ENCODINGS::MSGT:
      return parsed(std::unique_ptr<MsgT>(new MsgT(allocator)), bytes, sizeBytes);
    default:
      return nullptr;
  }
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
