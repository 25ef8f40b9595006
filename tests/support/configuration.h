// Folders with dictionary files for tests of the default search.
#ifndef MD_TESTS_SUPPORT_CONFIGURATION_H
#define MD_TESTS_SUPPORT_CONFIGURATION_H

#include <cstdlib>

#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace MD::test {

/// An empty folder that is the current one, and the only one on the configuration search path, for the lifetime of the
/// object. Paths are relative to it; the search finds them as "./" and the path.
class ConfigurationFolder {
 public:
  ConfigurationFolder() : m_previousFolder(std::filesystem::current_path()) {
    static int made = 0;
    m_folder = std::filesystem::canonical(std::filesystem::temp_directory_path()) /
               ("md_configuration_" + std::to_string(processId()) + "_" + std::to_string(++made));
    std::filesystem::remove_all(m_folder);
    std::filesystem::create_directories(m_folder);
    std::filesystem::current_path(m_folder);
    if (const char* value = std::getenv("CONFIG_PATH")) {
      m_previousPath = value;
    }
    setSearchPath(".");
  }
  ~ConfigurationFolder() {
    if (m_previousPath) {
      setSearchPath(m_previousPath->c_str());
    } else {
      unsetSearchPath();
    }
    std::filesystem::current_path(m_previousFolder);
    std::error_code error;
    std::filesystem::remove_all(m_folder, error);
  }
  ConfigurationFolder(const ConfigurationFolder&) = delete;
  ConfigurationFolder& operator=(const ConfigurationFolder&) = delete;

  static void setSearchPath(const char* path) {
#ifdef _WIN32
    _putenv_s("CONFIG_PATH", path);
#else
    setenv("CONFIG_PATH", path, 1);
#endif
  }
  static void unsetSearchPath() {
#ifdef _WIN32
    _putenv_s("CONFIG_PATH", "");
#else
    unsetenv("CONFIG_PATH");
#endif
  }

  static void write(const std::filesystem::path& path, const std::string& text) {
    if (path.has_parent_path()) {
      std::filesystem::create_directories(path.parent_path());
    }
    std::ofstream(path, std::ios::binary) << text;
  }
  static void makeFolder(const std::filesystem::path& path) { std::filesystem::create_directories(path); }
  static void remove(const std::filesystem::path& path) { std::filesystem::remove_all(path); }

 private:
  static long processId() {
#ifdef _WIN32
    return _getpid();
#else
    return getpid();
#endif
  }

  std::filesystem::path m_folder;
  std::filesystem::path m_previousFolder;
  std::optional<std::string> m_previousPath;
};

/// An XML dictionary file with the given text between the start and the end of the element that holds the entries.
inline std::string xmlDefinitions(const std::string& entries) {
  return "<?xml version=\"1.0\"?>\n<Definitions>\n<FieldDefinition>\n" + entries +
         "</FieldDefinition>\n</Definitions>\n";
}

/// One entry of such a file.
inline std::string xmlEntry(const std::string& name, const std::string& code, const std::string& type) {
  return "<Entry><Name>" + name + "</Name><Code>" + code + "</Code><Type>" + type + "</Type></Entry>\n";
}

}  // namespace MD::test

#endif
