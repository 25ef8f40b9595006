#include "value_dictionary.h"

#include <cstring>

#include <algorithm>
#include <chrono>
#include <random>

namespace MD::detail {
namespace {

struct Key {
  std::uint64_t words[2];
};

Key newKey() {
  try {
    std::random_device device;
    const auto word = [&device] { return std::uint64_t{device()} << 32 | std::uint64_t{device()}; };
    return {{word(), word()}};
  } catch (...) {
    const auto now = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    return {{now * 0x9e3779b97f4a7c15, now}};
  }
}

std::uint64_t rotated(std::uint64_t word, unsigned bits) noexcept { return word << bits | word >> (64 - bits); }

/// SipHash-1-3 of `text`.
std::uint64_t keyedHash(std::string_view text) noexcept {
  static const Key key = newKey();
  std::uint64_t a = key.words[0] ^ 0x736f6d6570736575;
  std::uint64_t b = key.words[1] ^ 0x646f72616e646f6d;
  std::uint64_t c = key.words[0] ^ 0x6c7967656e657261;
  std::uint64_t d = key.words[1] ^ 0x7465646279746573;
  const auto round = [&] {
    a += b;
    c += d;
    b = rotated(b, 13) ^ a;
    d = rotated(d, 16) ^ c;
    a = rotated(a, 32) + d;
    c += b;
    b = rotated(b, 17) ^ c;
    d = rotated(d, 21) ^ a;
    c = rotated(c, 32);
  };
  const auto take = [&](std::uint64_t word) {
    d ^= word;
    round();
    a ^= word;
  };
  const std::uint64_t length = text.size();
  std::uint64_t word = 0;
  for (; text.size() >= sizeof word; text.remove_prefix(sizeof word)) {
    std::memcpy(&word, text.data(), sizeof word);
    take(word);
  }
  word = 0;
  if (!text.empty()) {
    std::memcpy(&word, text.data(), text.size());
  }
  take(word | length << 56);
  c ^= 0xff;
  round();
  round();
  round();
  return a ^ b ^ c ^ d;
}

constexpr std::size_t kFirstSlots = 64;

}  // namespace

std::string_view ValueDictionary::value(std::size_t number) const noexcept {
  const auto begin = static_cast<std::size_t>(m_offsets.load<std::int32_t>(number));
  return {reinterpret_cast<const char*>(m_bytes.data()) + begin, end(number) - begin};
}

std::int32_t ValueDictionary::find(std::string_view wanted) const noexcept {
  if (m_slots.empty()) {
    return kAbsent;
  }
  const std::size_t mask = m_slots.size() - 1;
  for (auto slot = static_cast<std::size_t>(keyedHash(wanted)) & mask; m_slots[slot] != 0; slot = (slot + 1) & mask) {
    const std::size_t number = m_slots[slot] - 1;
    if (value(number) == wanted) {
      return static_cast<std::int32_t>(number);
    }
  }
  return kAbsent;
}

std::size_t ValueDictionary::freeSlot(const std::vector<std::uint32_t>& slots, std::string_view text) const noexcept {
  const std::size_t mask = slots.size() - 1;
  auto slot = static_cast<std::size_t>(keyedHash(text)) & mask;
  while (slots[slot] != 0) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

void ValueDictionary::makeRoom(std::string_view text) {
  const auto doubled = [](std::size_t needed, const MemoryBlock& block) {
    return needed <= block.capacity() ? needed : std::max(needed, 2 * block.capacity());
  };
  m_offsets.reserve(doubled(std::max<std::size_t>(m_count + 2, kFirstSlots) * sizeof(std::int32_t), m_offsets));
  m_bytes.reserve(doubled(std::max<std::size_t>(valueBytes() + text.size(), 1), m_bytes));
  if (2 * (m_count + 1) > m_slots.size()) {
    std::vector<std::uint32_t> slots(std::max(kFirstSlots, 2 * m_slots.size()));
    for (std::size_t number = 0; number != m_count; ++number) {
      slots[freeSlot(slots, value(number))] = static_cast<std::uint32_t>(number + 1);
    }
    m_slots.swap(slots);
  }
}

std::int32_t ValueDictionary::insert(std::string_view text) noexcept {
  const std::size_t begin = valueBytes();
  if (m_count == 0) {
    m_offsets.store(0, std::int32_t{0});
  }
  if (!text.empty()) {
    std::memcpy(m_bytes.data() + begin, text.data(), text.size());
  }
  m_slots[freeSlot(m_slots, text)] = static_cast<std::uint32_t>(m_count + 1);
  m_offsets.store(m_count + 1, static_cast<std::int32_t>(begin + text.size()));
  return static_cast<std::int32_t>(m_count++);
}

std::pair<MemoryBlock, MemoryBlock> ValueDictionary::take() noexcept {
  const std::size_t bytes = valueBytes();
  std::pair<MemoryBlock, MemoryBlock> parts(std::move(m_offsets), std::move(m_bytes));
  if (m_count != 0) {
    parts.first.shrink((m_count + 1) * sizeof(std::int32_t));
    parts.second.shrink(bytes);
  } else {
    parts = {};
  }
  std::fill(m_slots.begin(), m_slots.end(), 0);
  m_count = 0;
  return parts;
}

}  // namespace MD::detail
