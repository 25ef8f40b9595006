#include "commands/wireshark.h"

#include <filesystem>
#include <system_error>

#include "base/errors.h"
#include "base/platform.h"
#include "base/quoted_text.h"

namespace MD::tool {

std::string dissectorPath(const std::string& folder) {
  const std::string plugins = folder.empty() ? wiresharkPluginFolder() : folder;
  if (plugins.empty()) {
    throw UsageError("cannot find the home folder; name the folder of the plugins with --folder");
  }
  std::error_code error;
  std::filesystem::create_directories(plugins, error);
  if (error) {
    throw UsageError("cannot create the folder " + pathText(plugins) + ": " + error.message());
  }
  return (std::filesystem::path(plugins) / "md_message.lua").string();
}

}  // namespace MD::tool
