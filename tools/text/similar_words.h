// "did you mean": the word of a list that is the most like one that is not in it.
#ifndef MDMSG_SIMILAR_WORDS_H
#define MDMSG_SIMILAR_WORDS_H

#include <cstddef>

#include <string>
#include <string_view>

namespace MD::tool {

/// A letter of A to Z in lower case, and any other character as it is.
std::string inLowerCase(std::string_view text);
bool isEqualIgnoringCase(std::string_view a, std::string_view b) noexcept;

/// Takes words and keeps the one most like `wanted`, ignoring case: one character of at least 2 inserted, removed,
/// replaced or exchanged with its neighbour, 2 of at least 5, 3 of at least 8. The cost of a word is bounded, and small
/// for one that is unlike.
class SimilarWord {
 public:
  explicit SimilarWord(std::string_view wanted);

  void offer(std::string_view word);

  /// "; did you mean BID?", or nothing. Of words that are equally like it, the first offered.
  std::string question() const;

 private:
  std::string m_wanted;
  std::size_t m_limit;  ///< what a word must not exceed to be better than the best
  bool m_isFound = false;
  std::string m_best;
};

}  // namespace MD::tool

#endif
