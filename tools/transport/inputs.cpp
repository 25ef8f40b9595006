#include "transport/inputs.h"
#include "transport/open_messages.h"

#include <cerrno>
#include <cstring>

#include <filesystem>
#include <fstream>
#include <istream>
#include <system_error>

namespace MD::tool {
namespace {

/// The input breaks off, after part of it was used.
void reportBreak(Reporter& reporter, const InputError& error) {
  reporter.wholeInput(std::string(error.what()) + "; what comes before was read");
}

Go readInput(std::streambuf& source, const std::string& name, Reporter& reporter,
             const std::function<Go(InputBuffer&)>& use, std::uint64_t sizeBytes = 0) {
  reporter.setInput(name);
  reporter.beginInput(sizeBytes);
  InputBuffer in(source);
  try {
    return use(in);
  } catch (const InputError& error) {
    reportBreak(reporter, error);
  } catch (const std::ios_base::failure&) {
    reporter.unusable("cannot read " + name);
  }
  return Go::On;
}

Go readFile(const std::string& path, Reporter& reporter, const std::function<Go(InputBuffer&)>& use) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    reporter.unusable("cannot read " + path + ": it is a directory");
    return Go::On;
  }
  char buffer[std::size_t{1} << 16];
  std::filebuf file;
  file.pubsetbuf(buffer, sizeof buffer);
  if (file.open(path, std::ios::in | std::ios::binary) == nullptr) {
    reporter.unusable("cannot open " + path + ": " + std::strerror(errno));
    return Go::On;
  }
  const std::uintmax_t sizeBytes = std::filesystem::file_size(path, error);
  return readInput(file, path, reporter, use, error ? 0 : sizeBytes);
}

/// @param in  what the source reads from; null where that is no input
Go readMessages(MessageSource& source, const InputBuffer* in, Output& out, Reporter& reporter,
                const std::function<Go(const InputMessage&)>& use) {
  InputMessage message;
  for (;;) {
    try {
      if (!source.next(message)) {
        return Go::On;
      }
      if (in != nullptr) {
        reporter.advance(in->sourceBytes());
      }
      const Go go = use(message);
      out.lineDone();
      if (go == Go::NoFurther) {
        return go;
      }
    } catch (const LineError& error) {
      out.dropLine();
      reporter.error(error);
    }
  }
}

}  // namespace

void forEachInput(const Inputs& inputs, Reporter& reporter, const std::function<Go(InputBuffer&)>& use) {
  const auto readStandardInput = [&] {
    return readInput(*inputs.standardInput.rdbuf(), "standard input", reporter, use);
  };
  if (inputs.files.empty()) {
    readStandardInput();
  }
  for (const std::string& path : inputs.files) {
    if ((path == "-" ? readStandardInput() : readFile(path, reporter, use)) == Go::NoFurther) {
      return;
    }
  }
}

void forEachMessage(const Inputs& inputs, const SourceOptions& options, Output& out, Reporter& reporter,
                    const std::function<Go(const InputMessage&)>& use,
                    const std::function<void(const MessageSource&)>& whenRead) {
  if (inputs.live != nullptr) {
    readMessages(*inputs.live, nullptr, out, reporter, use);
    return;
  }
  forEachInput(inputs, reporter, [&](InputBuffer& in) {
    std::unique_ptr<MessageSource> source;
    try {
      source = openMessages(in, options, out, reporter);
    } catch (const InputError& error) {
      reporter.wholeInput(error.what());
      return Go::On;
    }
    const auto finish = [&] {
      source->reportWhole();
      if (whenRead) {
        whenRead(*source);
      }
    };
    try {
      const Go go = readMessages(*source, &in, out, reporter, use);
      if (go == Go::On) {
        finish();
      }
      return go;
    } catch (const InputError& error) {
      reportBreak(reporter, error);
      finish();
      return Go::On;
    }
  });
}

}  // namespace MD::tool
