// The XML parser's leaks when memory runs out.
#ifndef MD_TESTS_SUPPORT_XML_LEAKS_H
#define MD_TESTS_SUPPORT_XML_LEAKS_H

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace MD::test {

/// TinyXML does not free what it has made so far when memory runs out within it. Where `isXml`, leaks of this thread
/// are not reported during the lifetime of this object.
class XmlLeaks {
 public:
  explicit XmlLeaks(bool isXml) : m_isXml(isXml) {
#if defined(__SANITIZE_ADDRESS__)
    if (m_isXml) {
      __lsan_disable();
    }
#endif
  }
  ~XmlLeaks() {
#if defined(__SANITIZE_ADDRESS__)
    if (m_isXml) {
      __lsan_enable();
    }
#endif
  }
  XmlLeaks(const XmlLeaks&) = delete;
  XmlLeaks& operator=(const XmlLeaks&) = delete;

 private:
  [[maybe_unused]] const bool m_isXml;
};

}  // namespace MD::test

#endif
