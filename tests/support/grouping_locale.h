// A global locale that groups the digits of numbers, which nothing but a program's own streams may follow.
#ifndef MD_TESTS_SUPPORT_GROUPING_LOCALE_H
#define MD_TESTS_SUPPORT_GROUPING_LOCALE_H

#include <locale>
#include <string>

namespace MD::test {

/// The classic locale with points between groups of three digits: 1.234.567.
inline std::locale groupingLocale() {
  struct Grouping : std::numpunct<char> {
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
  };
  return {std::locale::classic(), new Grouping};
}

/// It is the process's global locale for the lifetime of this object.
class GroupingGlobalLocale {
 public:
  GroupingGlobalLocale() : m_previous(std::locale::global(groupingLocale())) {}
  ~GroupingGlobalLocale() { std::locale::global(m_previous); }
  GroupingGlobalLocale(const GroupingGlobalLocale&) = delete;
  GroupingGlobalLocale& operator=(const GroupingGlobalLocale&) = delete;

 private:
  std::locale m_previous;
};

}  // namespace MD::test

#endif
