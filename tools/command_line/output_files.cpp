#include "command_line/output_files.h"

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "base/errors.h"
#include "base/platform.h"

namespace MD::tool {
bool isSameFile(const std::string& path, const std::string& other) {
  std::error_code error;
  return std::filesystem::equivalent(path, other, error);
}

void refuseInputs(const std::string& path, const CommonOptions& options) {
  const auto isRead = [&](const std::string& input) {
    return input == "-" ? isStandardInput(path) : isSameFile(input, path);
  };
  if (options.files.empty() ? isStandardInput(path) : std::any_of(options.files.begin(), options.files.end(), isRead)) {
    throw UsageError(path + " is an input, too");
  }
  if (options.dictionary && isSameFile(*options.dictionary, path)) {
    throw UsageError(path + " is the dictionary, too");
  }
}

void openFile(const std::string& path, const CommonOptions& options, std::ofstream& file, Files& files) {
  std::error_code error;
  const bool isThere = std::filesystem::exists(path, error);
  if (isThere) {
    if (!options.isForced) {
      throw UsageError(path + " exists; --force writes over it");
    }
    refuseInputs(path, options);
  }
  file.open(path, std::ios::binary | std::ios::app);
  if (!file.is_open()) {
    throw UsageError("cannot write " + path + ": " + std::strerror(errno));
  }
  if (!isThere) {
    files.made.push_back(path);
  }
}

void removeEmpty(Files& files) {
  files.output.close();
  files.svg.close();
  for (const std::string& path : files.made) {
    std::error_code error;
    if (std::filesystem::file_size(path, error) == 0) {
      std::filesystem::remove(path, error);
    }
  }
}

}  // namespace MD::tool
