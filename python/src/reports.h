// Where the library's diagnostics go: to a callable, or to where they went before the module was imported.
#ifndef MD_PYTHON_REPORTS_H
#define MD_PYTHON_REPORTS_H

#include "python_support.h"

namespace MD::python {

/// For its lifetime its thread reports nothing: an exception says what the report would.
class QuietReports {
 public:
  QuietReports() noexcept : m_wereQuiet(t_areQuiet) { t_areQuiet = true; }
  ~QuietReports() { t_areQuiet = m_wereQuiet; }
  QuietReports(const QuietReports&) = delete;
  QuietReports& operator=(const QuietReports&) = delete;

  static bool areInForce() noexcept { return t_areQuiet; }

 private:
  static thread_local bool t_areQuiet;

  bool m_wereQuiet;
};

/// Puts the module between the library and the handler that is installed.
void takeReports() noexcept;

PyObject* setReportHandler(PyObject* module, PyObject* handler) noexcept;

}  // namespace MD::python

#endif
