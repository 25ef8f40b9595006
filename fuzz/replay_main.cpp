// Runs a target over given inputs, for compilers without libFuzzer and for the tests.
//
//   fuzz_TARGET FILE|FOLDER...
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz_target.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesOf(const fs::path& path) {
  if (!fs::is_directory(path)) {
    return {path};
  }
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) {
    files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

bool replay(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (!file.is_open() || file.bad()) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    return false;
  }
  // Exactly as long as the input, so that reading one byte too many is caught.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[text.size()]);
  std::copy(text.begin(), text.end(), bytes.get());
  std::fprintf(stderr, "%s, %zu bytes\n", path.c_str(), text.size());
  LLVMFuzzerTestOneInput(bytes.get(), text.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const fs::path& path : filesOf(argv[i])) {
      if (!replay(path)) {
        return 1;
      }
      ++count;
    }
  }
  if (count == 0) {
    std::fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  std::printf("%zu inputs replayed\n", count);
  return 0;
}
