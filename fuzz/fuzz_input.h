// An input as a source of numbers: its end is followed by zeros, so every input is valid.
#ifndef MD_FUZZ_FUZZ_INPUT_H
#define MD_FUZZ_FUZZ_INPUT_H

#include <cstddef>
#include <cstdint>

#include <algorithm>
#include <string>
#include <type_traits>

#include "support/message_sequence.h"

namespace MD::fuzz {

class FuzzInput : public test::Choices {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {}

  bool isAtEnd() const { return m_next == m_end; }
  std::size_t left() const { return static_cast<std::size_t>(m_end - m_next); }

  template <class T>
  T number() {
    static_assert(std::is_unsigned_v<T>);
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T) && m_next != m_end; ++i) {
      value = static_cast<T>(value | static_cast<T>(*m_next++) << 8 * i);
    }
    return value;
  }

  /// Takes as many bytes as `limit` needs.
  unsigned below(unsigned limit) override {
    const std::uint32_t value = limit <= 0x100     ? number<std::uint8_t>()
                                : limit <= 0x10000 ? number<std::uint16_t>()
                                                   : number<std::uint32_t>();
    return value % limit;
  }
  std::uint64_t word() override { return number<std::uint64_t>(); }

  /// A long text repeats its first characters: an input need not be as long as the values it asks for.
  std::string text(unsigned length) override {
    constexpr unsigned kOwn = 8;
    std::string result = bytes(std::min(length, kOwn));
    result.resize(std::min(length, kOwn));
    for (std::size_t i = kOwn; i < length; ++i) {
      result += result[i % kOwn];
    }
    return result;
  }

  /// The next bytes, fewer at the end of the input.
  std::string bytes(std::size_t count) {
    const std::string result(m_next, m_next + std::min(count, left()));
    m_next += result.size();
    return result;
  }
  std::string rest() { return bytes(left()); }

 private:
  const std::uint8_t* m_next;
  const std::uint8_t* m_end;
};

}  // namespace MD::fuzz

#endif
