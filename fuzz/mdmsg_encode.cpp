// Input of `mdmsg encode`: the first byte chooses the encoding and JSON lines or CSV, the rest is the text. Each line
// that comes out decodes to JSON without a warning, and that encodes to the same line.
#include <string>

#include "fuzz_input.h"
#include "fuzz_target.h"
#include "mdmsg_run.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::FuzzInput input(data, size);
  const unsigned choice = input.below(6);
  const char* const encoding = MD::fuzz::kEncodingNames[choice % 3];
  const MD::fuzz::Run encoded = MD::fuzz::encode(input.rest(), encoding, choice >= 3);
  MD_PROPERTY(encoded.isClean() == encoded.err.empty(), "its status and its reports differ: " + encoded.err);

  MD::fuzz::forEachLine(encoded.out, [&](const std::string& line) {
    MD_PROPERTY(MD::fuzz::encodingOf(line) == encoding, "writes another encoding: " + line);
    const MD::fuzz::Run json = MD::fuzz::decode(line, MD::tool::Format::Json);
    MD_PROPERTY(json.isClean(), "writes what it remarks on: " + json.err);
    const MD::fuzz::Run again = MD::fuzz::encode(json.out, encoding);
    MD_PROPERTY(again.isClean() && again.out == line, "encodes " + json.out + "as " + again.out + "not " + line);
  });
  return 0;
}
