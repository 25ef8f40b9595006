// The assertion mechanism of set_assertion_handler(). Expression, file and line are what users see in a report, so
// they are given by name and number where they are fixed and do not follow this tree's own file names.
#ifndef MD_SRC_ASSERTION_H
#define MD_SRC_ASSERTION_H

namespace MD::detail {

/// Hands a failed assertion to the installed handler.
void assertionFailed(const char* expression, const char* file, unsigned line);

/// Checks a condition whose reported text is `expression`.
/// @return whether it held, for callers that continue differently after a handler returned
inline bool check(bool holds, const char* expression, const char* file, unsigned line) {
  if (!holds) {
    assertionFailed(expression, file, line);
  }
  return holds;
}

}  // namespace MD::detail

#endif
