#include "string_conversion.h"

#include <boost/numeric/conversion/cast.hpp>

#include "md/md_file_search.h"

namespace MD::detail {
namespace {

int checkedLength(std::size_t length) {
  try {
    return boost::numeric_cast<int>(length);
  } catch (const boost::numeric::bad_numeric_cast&) {
    throw InputOverflowException();
  }
}

// The functions that argument errors name, on every platform.
constexpr const char* platformFunction(char) { return "MultiByteToWideChar"; }
constexpr const char* platformFunction(wchar_t) { return "WideCharToMultiByte"; }

// Returns only for text without a translation, whose result is empty.
template <class From, class Failure>
void throwUnlessUntranslatable(std::uint32_t error) {
  switch (error) {
    case kErrorNoUnicodeTranslation:
      return;
    case kErrorInvalidFlags:
      throw ArgumentException(platformFunction(From()));
    default:
      throw Failure(error);
  }
}

}  // namespace

template <class From, class To>
StringConverter<From, To>::StringConverter(const SearchPlatform& platform, const From* text, std::size_t length) {
  if (text == nullptr) {
    throw NULLStringException();
  }
  const int inputLength = checkedLength(length);
  if (inputLength == 0) {
    return;
  }

  const ConversionResult needed = platform.convert(text, inputLength, static_cast<To*>(nullptr), 0);
  if (needed.length <= 0) {
    throwUnlessUntranslatable<From, OutputLengthException>(needed.error);
    return;
  }

  To* output = m_inline;
  if (needed.length > kInlineCapacity) {
    m_heap = std::make_unique<To[]>(static_cast<std::size_t>(needed.length));
    output = m_heap.get();
  }
  const ConversionResult written = platform.convert(text, inputLength, output, needed.length);
  if (written.length != needed.length) {
    throwUnlessUntranslatable<From, ConversionException>(written.error);
    return;
  }
  m_length = written.length;
}

template class StringConverter<char, wchar_t>;
template class StringConverter<wchar_t, char>;

}  // namespace MD::detail
