#include "search_platform.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdlib>

#include <memory>

// Before the headers that build on it.
#include <windows.h>

#include <knownfolders.h>
#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>

namespace MD::detail {
namespace {

struct TaskMemoryDeleter {
  void operator()(wchar_t* memory) const { CoTaskMemFree(memory); }
};

class WindowsPlatform final : public SearchPlatform {
 public:
  std::optional<std::string> environmentVariable(const std::string& name) const override {
    if (const char* value = std::getenv(name.c_str())) {
      return value;
    }
    return std::nullopt;
  }

  bool exists(const std::string& path) const override {
    struct _stat64i32 status;
    return _stat64i32(path.c_str(), &status) == 0;
  }

  bool exists(const std::wstring& path) const override { return PathFileExistsW(path.c_str()) != FALSE; }

  std::wstring programDataFolder() const override {
    constexpr DWORD kNoAlias = 0x1000;  // KF_FLAG_NO_ALIAS, which not every SDK header declares
    wchar_t* folder = nullptr;
    const HRESULT result = SHGetKnownFolderPath(FOLDERID_ProgramData, kNoAlias, nullptr, &folder);
    // The buffer is the caller's to free also after a failure.
    const std::unique_ptr<wchar_t, TaskMemoryDeleter> owned(folder);
    if (FAILED(result) || folder == nullptr) {
      return {};
    }
    return folder;
  }

  std::wstring moduleFolder() const override {
    constexpr DWORD kCapacity = 260;
    wchar_t path[kCapacity];
    const DWORD length = GetModuleFileNameW(nullptr, path, kCapacity);
    // A full buffer is the call's way to say that it cut the path.
    if (length == 0 || length >= kCapacity || !PathRemoveFileSpecW(path)) {
      return {};
    }
    return path;
  }

  ConversionResult convert(const char* input, int length, wchar_t* output, int capacity) const override {
    SetLastError(ERROR_SUCCESS);
    const int converted = MultiByteToWideChar(CP_ACP, 0, input, length, output, capacity);
    return {converted, GetLastError()};
  }

  ConversionResult convert(const wchar_t* input, int length, char* output, int capacity) const override {
    SetLastError(ERROR_SUCCESS);
    const int converted = WideCharToMultiByte(CP_ACP, 0, input, length, output, capacity, nullptr, nullptr);
    return {converted, GetLastError()};
  }
};

static_assert(kErrorNoUnicodeTranslation == ERROR_NO_UNICODE_TRANSLATION);
static_assert(kErrorInvalidFlags == ERROR_INVALID_FLAGS);

}  // namespace

const SearchPlatform& searchPlatform() {
  static const WindowsPlatform platform;
  return platform;
}

}  // namespace MD::detail
