// What assertions were reported, for tests that let the operation go on.
#ifndef MD_TESTS_SUPPORT_ASSERTIONS_H
#define MD_TESTS_SUPPORT_ASSERTIONS_H

#include <string>
#include <vector>

#include "md/md_assert.h"

namespace MD::test {

/// Records assertions instead of stopping the process, for its own lifetime.
class RecordedAssertions {
 public:
  RecordedAssertions() {
    entries().clear();
    m_previous = set_assertion_handler(&RecordedAssertions::record);
  }
  ~RecordedAssertions() { set_assertion_handler(m_previous); }
  RecordedAssertions(const RecordedAssertions&) = delete;
  RecordedAssertions& operator=(const RecordedAssertions&) = delete;

  /// Each as "file:line: expression".
  static std::vector<std::string>& entries() {
    static std::vector<std::string> list;
    return list;
  }

 private:
  static void record(const char* expression, const char* file, unsigned line) {
    entries().push_back(std::string(file) + ":" + std::to_string(line) + ": " + expression);
  }

  AssertionHandler m_previous;
};

}  // namespace MD::test

#endif
