// The files that a command writes.
#ifndef MDMSG_OUTPUT_FILES_H
#define MDMSG_OUTPUT_FILES_H

#include <fstream>
#include <string>
#include <vector>

#include "command_line/options.h"

namespace MD::tool {

/// What is written besides standard output.
struct Files {
  std::ofstream output;
  std::ofstream svg;
  std::vector<std::string> made;  ///< those that were not there before
};

bool isSameFile(const std::string& path, const std::string& other);
/// @throws UsageError when a file that exists is also read
void refuseInputs(const std::string& path, const CommonOptions& options);
/// Opens a file to write, which must not exist, or not be an input, as the options have it.
void openFile(const std::string& path, const CommonOptions& options, std::ofstream& file, Files& files);
/// Removes files that were made and got nothing: they would be in the way of the next try.
void removeEmpty(Files& files);

}  // namespace MD::tool

#endif
