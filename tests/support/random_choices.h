// Random choices for tests, the same for the same seed on every platform.
#ifndef MD_TESTS_SUPPORT_RANDOM_CHOICES_H
#define MD_TESTS_SUPPORT_RANDOM_CHOICES_H

#include <cstdint>

#include <random>
#include <string>

#include "support/message_sequence.h"

namespace MD::test {

/// What to do next, the same for the same seed everywhere.
class RandomChoices : public Choices {
 public:
  explicit RandomChoices(std::uint32_t seed) : m_random(seed) {}

  unsigned below(unsigned limit) override { return static_cast<unsigned>(m_random() % limit); }
  std::uint64_t word() override {
    const std::uint64_t high = m_random();
    return high << 32 | m_random();
  }
  std::string text(unsigned length) override {
    std::string text(length, ' ');
    for (char& c : text) {
      c = static_cast<char>(oneIn(8) ? below(256) : 'a' + below(26));
    }
    return text;
  }

 private:
  std::mt19937 m_random;
};

}  // namespace MD::test

#endif
