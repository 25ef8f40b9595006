// What the library writes to standard error, for tests that compare it.
#ifndef MD_TESTS_SUPPORT_CAPTURED_ERRORS_H
#define MD_TESTS_SUPPORT_CAPTURED_ERRORS_H

#include <cstddef>
#include <cstdint>

#include <iostream>
#include <sstream>
#include <string>

namespace MD::test {

/// Keeps what is written to std::cerr, for its own lifetime.
class CapturedErrors {
 public:
  CapturedErrors() : m_previous(std::cerr.rdbuf(m_text.rdbuf())) {}
  ~CapturedErrors() { std::cerr.rdbuf(m_previous); }
  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;

  /// What was written since the last call.
  std::string take() {
    std::string text = m_text.str();
    m_text.str({});
    return text;
  }

 private:
  std::ostringstream m_text;
  std::streambuf* m_previous;
};

/// A report as it reads: its line, then the three lines about the field, the type as a raw byte.
inline std::string report(const std::string& line, std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
  return line + "\n  Field id:   " + std::to_string(id) + "\n  Field type: " + static_cast<char>(type) +
         "\n  Field size: " + std::to_string(sizeBytes) + "\n";
}

inline std::string badField(std::uint16_t id, std::uint8_t type, std::size_t sizeBytes) {
  return report("Error: Bad Field on wire!  Skipping!", id, type, sizeBytes);
}

/// The dump that follows the reports of stripped fields.
inline std::string remainder(const std::string& printOut) {
  return "Remainder of message after stripping fields:\n  " + printOut + "\n";
}

}  // namespace MD::test

#endif
