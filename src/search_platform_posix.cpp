// There is no program-data folder here and no search in the program's folder: only the configuration search path
// applies. Narrow strings are UTF-8; what is not well-formed has no translation.
#include "search_platform.h"

#include <sys/stat.h>

#include <cstdlib>

#include <limits>

#include <boost/locale/utf.hpp>

#include "string_conversion.h"

namespace MD::detail {
namespace {

// The error codes of Windows for these cases.
constexpr std::uint32_t kErrorInsufficientBuffer = 122;
constexpr std::uint32_t kErrorArithmeticOverflow = 534;

template <class From, class To>
ConversionResult transcode(const From* input, int length, To* output, int capacity) {
  using Decoder = boost::locale::utf::utf_traits<From>;
  using Encoder = boost::locale::utf::utf_traits<To>;
  const From* const end = input + length;
  int written = 0;
  while (input != end) {
    const boost::locale::utf::code_point character = Decoder::decode(input, end);
    if (character == boost::locale::utf::illegal || character == boost::locale::utf::incomplete) {
      return {0, kErrorNoUnicodeTranslation};
    }
    const int width = Encoder::width(character);
    if (width > std::numeric_limits<int>::max() - written) {
      return {0, kErrorArithmeticOverflow};
    }
    if (capacity > 0) {
      if (width > capacity - written) {
        return {0, kErrorInsufficientBuffer};
      }
      Encoder::encode(character, output + written);
    }
    written += width;
  }
  return {written, 0};
}

class PosixPlatform final : public SearchPlatform {
 public:
  std::optional<std::string> environmentVariable(const std::string& name) const override {
    if (const char* value = std::getenv(name.c_str())) {
      return value;
    }
    return std::nullopt;
  }

  bool exists(const std::string& path) const override {
    struct stat status;
    return stat(path.c_str(), &status) == 0;
  }

  bool exists(const std::wstring& path) const override {
    return exists(std::string(NarrowText(*this, path.data(), path.size()).view()));
  }

  std::wstring programDataFolder() const override { return {}; }
  std::wstring moduleFolder() const override { return {}; }

  ConversionResult convert(const char* input, int length, wchar_t* output, int capacity) const override {
    return transcode(input, length, output, capacity);
  }
  ConversionResult convert(const wchar_t* input, int length, char* output, int capacity) const override {
    return transcode(input, length, output, capacity);
  }
};

}  // namespace

const SearchPlatform& searchPlatform() {
  static const PosixPlatform platform;
  return platform;
}

}  // namespace MD::detail
