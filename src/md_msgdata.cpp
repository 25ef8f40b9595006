#include "md/md_msgdata.h"

#include <cstdlib>
#include <cstring>

#include <functional>
#include <limits>
#include <new>

#include "assertion.h"
#include "cache_lines.h"
#include "poison.h"

namespace MD {
namespace {

constexpr const char* kFile = "md_message/include/md/md_msgdata";
constexpr std::uint64_t kStepBytes = 1024;

// The bytes of a buffer have cache lines of their own. realloc() knows of none, so a block is longer by as much as its
// start may be misaligned, and the byte before the data is their distance from that: from 1 to kCacheLinesBytes, as the
// byte has to be in the block.
constexpr std::size_t kMostOffset = detail::kCacheLinesBytes;
static_assert(kStepBytes % detail::kCacheLinesBytes == 0 && kMostOffset <= std::numeric_limits<std::uint8_t>::max());

std::size_t offsetIn(const std::uint8_t* block) noexcept {
  return kMostOffset - reinterpret_cast<std::uintptr_t>(block) % kMostOffset;
}

std::uint8_t* blockOf(std::uint8_t* data) noexcept { return data != nullptr ? data - data[-1] : nullptr; }

}  // namespace

MsgData::~MsgData() { std::free(blockOf(m_data)); }

void MsgData::grow(std::uint64_t bytes) {
  if (bytes > std::numeric_limits<std::size_t>::max() - kStepBytes - kMostOffset) {
    throw std::bad_alloc();
  }
  const auto capacity = static_cast<std::size_t>((bytes + (kStepBytes - 1)) & ~(kStepBytes - 1));
  std::uint8_t* const oldBlock = blockOf(m_data);
  const auto oldOffset = static_cast<std::size_t>(m_data - oldBlock);
  auto* const block = static_cast<std::uint8_t*>(std::realloc(oldBlock, capacity + kMostOffset));
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  const std::size_t offset = offsetIn(block);
  if (offset != oldOffset && m_capacity != 0) {
    std::memmove(block + offset, block + oldOffset, static_cast<std::size_t>(m_capacity));
  }
  m_data = block + offset;
  m_data[-1] = static_cast<std::uint8_t>(offset);
  m_capacity = capacity;
  // All but the bytes that are the data's, and the few with the distance.
  detail::poison(block, offset - sizeof(void*));
  detail::poison(m_data + capacity, kMostOffset - offset);
}

bool MsgData::owns(const void* bytes) const noexcept {
  // Pointers to unrelated objects are ordered by std::less alone.
  const std::less<const void*> before;
  return m_data != nullptr && !before(bytes, m_data) && before(bytes, m_data + m_capacity);
}

void MsgData::insert(std::uint8_t* pos, const std::uint8_t* first, const std::uint8_t* last) {
  if (!detail::check(last >= first, "last >= first", kFile, 98) ||
      !detail::check(pos >= begin(), "pos >= begin()", kFile, 99) ||
      !detail::check(pos <= end(), "pos <= end()", kFile, 100)) {
    return;
  }
  const auto count = static_cast<std::size_t>(last - first);
  if (count == 0) {
    return;
  }
  const auto offset = static_cast<std::size_t>(pos - begin());
  const bool isOwn = owns(first);
  const std::size_t source = isOwn ? static_cast<std::size_t>(first - m_data) : 0;
  reserve(m_size + count);
  std::uint8_t* gap = m_data + offset;
  std::memmove(gap + count, gap, static_cast<std::size_t>(m_size) - offset);
  if (!isOwn) {
    std::memcpy(gap, first, count);
  } else {
    // The part of the source before the gap did not move; the part after it moved up by `count`.
    const std::size_t below = source >= offset ? 0 : (offset - source < count ? offset - source : count);
    std::memmove(gap, m_data + source, below);
    std::memmove(gap + below, m_data + source + below + count, count - below);
  }
  m_size += count;
}

std::uint8_t* MsgData::erase(std::uint8_t* first, std::uint8_t* last) {
  if (!detail::check(last >= first, "last >= first", kFile, 164) ||
      !detail::check(first >= begin(), "first >= begin()", kFile, 165) ||
      !detail::check(last <= end(), "last <= end()", kFile, 166)) {
    return first;
  }
  if (first != last) {
    std::memmove(first, last, static_cast<std::size_t>(end() - last));
    m_size -= static_cast<std::uint64_t>(last - first);
  }
  return first;
}

}  // namespace MD
