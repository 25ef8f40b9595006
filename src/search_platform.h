// The requests of the search for configuration files to the operating system. The search itself is platform-neutral
// code over this interface, so that all of it, the fallbacks of another platform included, is tested everywhere.
#ifndef MD_SRC_SEARCH_PLATFORM_H
#define MD_SRC_SEARCH_PLATFORM_H

#include <cstdint>

#include <optional>
#include <string>

namespace MD {

class FileSearchParameter;

namespace detail {

// The error codes of conversions are those of Windows; these two are handled separately.
constexpr std::uint32_t kErrorInvalidFlags = 1004;
constexpr std::uint32_t kErrorNoUnicodeTranslation = 1113;

/// Characters written (or, asked with capacity 0, needed); 0 when the conversion failed, with the reason in `error`.
struct ConversionResult {
  int length;
  std::uint32_t error;
};

class SearchPlatform {
 public:
  /// @return the variable's value, nothing when it is unset
  virtual std::optional<std::string> environmentVariable(const std::string& name) const = 0;

  /// Whether a file or folder of this path exists.
  virtual bool exists(const std::string& path) const = 0;
  virtual bool exists(const std::wstring& path) const = 0;

  /// Both empty if they are unknown.
  virtual std::wstring programDataFolder() const = 0;
  virtual std::wstring moduleFolder() const = 0;

  /// Converts `length` characters (at least 1, not necessarily terminated) into `output`, without a terminator.
  /// With `capacity` 0 nothing is written and the length needed is returned.
  virtual ConversionResult convert(const char* input, int length, wchar_t* output, int capacity) const = 0;
  virtual ConversionResult convert(const wchar_t* input, int length, char* output, int capacity) const = 0;

 protected:
  SearchPlatform() = default;
  // Not virtual: nobody owns a platform through this class, and a trivial destructor leaves searchPlatform() usable
  // until the very end of the process.
  ~SearchPlatform() = default;
  SearchPlatform(const SearchPlatform&) = default;
  SearchPlatform& operator=(const SearchPlatform&) = default;
};

/// The platform this library was built for. Stateless and thread-safe.
const SearchPlatform& searchPlatform();

/// file_search() on a given platform.
std::string fileSearch(const SearchPlatform& platform, const char* name, const FileSearchParameter& param,
                       const char* subfolder, const char* company);

/// Where fileSearch() without a subfolder searches, for a program's user.
std::string searchedFolders(const SearchPlatform& platform, const FileSearchParameter& param);

}  // namespace detail
}  // namespace MD

#endif
