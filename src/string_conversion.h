// Conversion between narrow strings and the platform's wide strings. A converter owns its result; short results, which
// is nearly every path, need no heap.
#ifndef MD_SRC_STRING_CONVERSION_H
#define MD_SRC_STRING_CONVERSION_H

#include <cstddef>

#include <memory>
#include <string_view>

#include "search_platform.h"

namespace MD::detail {

/// Converts one string when it is constructed.
template <class From, class To>
class StringConverter {
 public:
  static constexpr int kInlineCapacity = 126;

  /// @param text  `length` characters, which may include null characters
  /// @throw NULLStringException, InputOverflowException, ArgumentException, OutputLengthException, ConversionException
  StringConverter(const SearchPlatform& platform, const From* text, std::size_t length);

  /// Converts up to the terminator of `text`.
  StringConverter(const SearchPlatform& platform, const From* text)
      : StringConverter(platform, text, text == nullptr ? 0 : std::char_traits<From>::length(text)) {}

  StringConverter(const StringConverter&) = delete;
  StringConverter& operator=(const StringConverter&) = delete;

  /// The result, without a terminator; empty when the text has no translation. Valid while the converter lives.
  std::basic_string_view<To> view() const {
    return {m_heap != nullptr ? m_heap.get() : m_inline, static_cast<std::size_t>(m_length)};
  }

 private:
  int m_length = 0;
  std::unique_ptr<To[]> m_heap;
  To m_inline[kInlineCapacity];
};

using WideText = StringConverter<char, wchar_t>;
using NarrowText = StringConverter<wchar_t, char>;

extern template class StringConverter<char, wchar_t>;
extern template class StringConverter<wchar_t, char>;

}  // namespace MD::detail

#endif
