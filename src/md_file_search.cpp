#include "md/md_file_search.h"

#include <cstddef>

#include <string_view>
#include <utility>

#include "search_platform.h"
#include "string_conversion.h"

namespace MD {

const FileSearchParameter::literal_t CONFIG_PATH = {
    "CONFIG_PATH", "./etc:.:/home/kvx/config/KVXconfig:./config_latest:./Config:./cfg"};

FileSearchParameter::FileSearchParameter(const char* environmentVariable)
    : m_environmentVariable(environmentVariable) {}

FileSearchParameter::FileSearchParameter(std::string environmentVariable)
    : m_environmentVariable(std::move(environmentVariable)) {}

FileSearchParameter::FileSearchParameter(const literal_t& literal)
    : m_environmentVariable(literal.environmentVariable), m_defaultPath(literal.defaultPath) {}

FileSearchParameter& FileSearchParameter::default_path(const std::string& path) {
  m_defaultPath = path;
  return *this;
}

const std::string& FileSearchParameter::default_path() const noexcept { return m_defaultPath; }

const std::string& FileSearchParameter::environment_variable() const noexcept { return m_environmentVariable; }

std::string file_search(const char* name, const FileSearchParameter& param, const char* subfolder,
                        const char* company) {
  return detail::fileSearch(detail::searchPlatform(), name, param, subfolder, company);
}

std::wstring GetProgramDataFolder() { return detail::searchPlatform().programDataFolder(); }

std::wstring GetModuleFolder() { return detail::searchPlatform().moduleFolder(); }

NULLStringException::NULLStringException() : std::runtime_error("Input string is NULL") {}
NULLStringException::~NULLStringException() = default;

InputOverflowException::InputOverflowException() : std::runtime_error("Input string is too long") {}
InputOverflowException::~InputOverflowException() = default;

ArgumentException::ArgumentException(const std::string& function)
    : std::runtime_error(function + ": ERROR_INVALID_FLAGS") {}
ArgumentException::~ArgumentException() = default;

OutputLengthException::OutputLengthException(std::uint32_t errorCode)
    : std::runtime_error("Could not get output length. Error code: " + std::to_string(errorCode)) {}
OutputLengthException::~OutputLengthException() = default;

ConversionException::ConversionException(std::uint32_t errorCode)
    : std::runtime_error("String conversion failed. Error code: " + std::to_string(errorCode)) {}
ConversionException::~ConversionException() = default;

namespace detail {
namespace {

// The last one makes the folder itself a candidate, with two backslashes before the name, which Windows accepts.
constexpr std::wstring_view kFallbackSuffixes[] = {L"\\etc", L"\\cfg", L"\\config_latest", L"\\Config", L"\\"};

// Nothing if no candidate exists. A candidate whose path has no narrow form counts as found, with an empty string.
std::optional<std::string> searchFallback(const SearchPlatform& platform, const std::wstring& folder,
                                          std::wstring_view name) {
  for (std::wstring_view suffix : kFallbackSuffixes) {
    std::wstring candidate = folder;
    candidate.append(suffix).append(1, L'\\').append(name);
    if (platform.exists(candidate)) {
      return std::string(NarrowText(platform, candidate.data(), candidate.size()).view());
    }
  }
  return std::nullopt;
}

}  // namespace

std::string fileSearch(const SearchPlatform& platform, const char* name, const FileSearchParameter& param,
                       const char* subfolder, const char* company) {
  if (name == nullptr) {
    throw NULLStringException();
  }

  const std::optional<std::string> configuredPath = platform.environmentVariable(param.environment_variable());
  const std::string searchPath = configuredPath.value_or(param.default_path()) + ':';
  std::size_t begin = 0;
  for (std::size_t colon = searchPath.find(':'); colon != std::string::npos; colon = searchPath.find(':', begin)) {
    std::string candidate = searchPath.substr(begin, colon - begin);
    candidate.append(1, '/').append(name);
    if (platform.exists(candidate)) {
      return candidate;
    }
    begin = colon + 1;
  }
  // Deliberate: a site that sets the variable lists every folder it wants searched.
  if (configuredPath.has_value()) {
    return {};
  }

  if (subfolder != nullptr && *subfolder != '\0') {
    std::wstring folder = platform.programDataFolder();
    if (!folder.empty()) {
      if (folder.back() != L'\\') {
        folder += L'\\';
      }
      folder.append(WideText(platform, company).view()).append(1, L'\\').append(WideText(platform, subfolder).view());
      if (auto found = searchFallback(platform, folder, WideText(platform, name).view())) {
        return *std::move(found);
      }
    }
  }

  const std::wstring folder = platform.moduleFolder();
  if (!folder.empty()) {
    if (auto found = searchFallback(platform, folder, WideText(platform, name).view())) {
      return *std::move(found);
    }
  }
  return {};
}

std::string searchedFolders(const SearchPlatform& platform, const FileSearchParameter& param) {
  const std::string& variable = param.environment_variable();
  const std::optional<std::string> configuredPath = platform.environmentVariable(variable);
  if (configuredPath.has_value()) {
    return *configuredPath + " (" + variable + ')';
  }
  const bool hasFallback = !platform.moduleFolder().empty();
  return param.default_path() + (hasFallback ? " and the program's folder (" : " (") + variable + " is not set)";
}

}  // namespace detail
}  // namespace MD
