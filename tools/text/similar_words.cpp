#include "text/similar_words.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

/// Longer words are names of nobody's fields, and are not compared.
constexpr std::size_t kLongestWord = 64;
constexpr std::size_t kMostChanges = 3;

char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// The number of changes that make one word of the other, or limit + 1 for more than `limit`. `a` is in lower case;
/// both have at most kLongestWord characters.
std::size_t changesBetween(std::string_view a, std::string_view b, std::size_t limit) {
  using Row = std::array<std::size_t, kLongestWord + 1>;
  std::array<Row, 3> rows;
  Row* beforeLast = &rows[0];
  Row* last = &rows[1];
  Row* row = &rows[2];
  for (std::size_t j = 0; j <= b.size(); ++j) {
    (*row)[j] = j;
  }
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::swap(beforeLast, last);
    std::swap(last, row);
    (*row)[0] = i;
    std::size_t least = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = (*last)[j - 1] + std::size_t{a[i - 1] != lower(b[j - 1])};
      std::size_t best = std::min({replaced, (*last)[j] + 1, (*row)[j - 1] + 1});
      if (i > 1 && j > 1 && a[i - 1] == lower(b[j - 2]) && a[i - 2] == lower(b[j - 1])) {
        best = std::min(best, (*beforeLast)[j - 2] + 1);
      }
      (*row)[j] = best;
      least = std::min(least, best);
    }
    if (least > limit) {
      return limit + 1;
    }
  }
  return (*row)[b.size()];
}

}  // namespace

std::string inLowerCase(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), &lower);
  return result;
}

bool isEqualIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

SimilarWord::SimilarWord(std::string_view wanted)
    : m_wanted(inLowerCase(wanted)),
      m_limit(m_wanted.size() > kLongestWord ? 0 : std::min(kMostChanges, (m_wanted.size() + 1) / 3)) {}

void SimilarWord::offer(std::string_view word) {
  const auto [shorter, longer] = std::minmax({word.size(), m_wanted.size()});
  if (longer > kLongestWord || word.empty() || longer - shorter > m_limit) {
    return;
  }
  const std::size_t changes = changesBetween(m_wanted, word, m_limit);
  if (changes > m_limit || (m_isFound && changes == m_limit)) {
    return;
  }
  m_isFound = true;
  m_limit = changes;
  m_best = word;
}

std::string SimilarWord::question() const {
  return m_isFound ? "; did you mean " + printable(m_best) + '?' : std::string();
}

}  // namespace MD::tool
