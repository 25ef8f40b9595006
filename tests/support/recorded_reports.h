// What the library reports, taken by a handler instead of standard error.
#ifndef MD_TESTS_SUPPORT_RECORDED_REPORTS_H
#define MD_TESTS_SUPPORT_RECORDED_REPORTS_H

#include <cstddef>

#include <mutex>
#include <string>
#include <vector>

#include "md/md_report.h"

namespace MD::test {

/// Keeps each report, of whatever thread, for its own lifetime.
class RecordedReports {
 public:
  RecordedReports() {
    take();
    m_previous = set_report_handler(&RecordedReports::record);
  }
  ~RecordedReports() { set_report_handler(m_previous); }
  RecordedReports(const RecordedReports&) = delete;
  RecordedReports& operator=(const RecordedReports&) = delete;

  /// The texts that came since the last call.
  static std::vector<std::string> take() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    std::vector<std::string> texts;
    texts.swap(s_texts);
    return texts;
  }

 private:
  static void record(const char* text, std::size_t length) {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_texts.emplace_back(text, length);
  }

  static inline std::mutex s_mutex;
  static inline std::vector<std::string> s_texts;

  ReportHandler m_previous = nullptr;
};

}  // namespace MD::test

#endif
