// Input of `mdmsg decode` and `convert`. A line of hex digits decodes alone as it does among others. What decodes to
// JSON without a warning encodes to the same bytes; what converts without a warning decodes to the same JSON.
#include <string>

#include "fuzz_target.h"
#include "mdmsg_run.h"

namespace {

using MD::fuzz::Run;
using MD::tool::Format;

constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
const std::string kCompressed = "\x1F\x8B";

/// The digits of a line, in lower case.
std::string digitsOf(const std::string& line) {
  std::string digits;
  for (const char c : line) {
    if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) {
      digits += c;
    } else if (c >= 'A' && c <= 'F') {
      digits += static_cast<char>(c - 'A' + 'a');
    }
  }
  return digits;
}

/// Whether the JSON depends on how a value is stored, which differs between encodings: the width of an integer,
/// the bytes after a string.
bool tellsStorage(const std::string& json) {
  return json.find("\"bytes\":") != json.npos || json.find("\"end\":") != json.npos;
}

/// Whether a line alone is taken for compressed data, and is no line then.
bool haveCompressedLine(const std::string& text) {
  return text.rfind(kCompressed, 0) == 0 || text.find('\n' + kCompressed) != text.npos;
}

void checkLine(const std::string& line, const Run& json) {
  if (!json.isClean() || json.out.empty()) {
    return;
  }
  const std::string digits = digitsOf(line);
  const Run encoded = MD::fuzz::encode(json.out, MD::fuzz::encodingOf(digits));
  MD_PROPERTY(encoded.isClean(), "does not encode what it decoded: " + json.out + encoded.err);
  MD_PROPERTY(encoded.out == digits + '\n', "encodes " + encoded.out + "instead of " + digits);
  for (const char* const encoding : MD::fuzz::kEncodingNames) {
    const Run converted = MD::fuzz::convert(line, encoding);
    if (!converted.isClean()) {
      MD_PROPERTY(converted.out.empty(), "converts and complains: " + converted.err);
      continue;
    }
    const Run decoded = MD::fuzz::decode(converted.out, Format::Json);
    MD_PROPERTY(decoded.isClean() || tellsStorage(json.out), "does not decode what it converted: " + decoded.err);
    MD_PROPERTY(decoded.out == json.out || tellsStorage(json.out),
                "converts to " + decoded.out + "instead of " + json.out);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const Run json = MD::fuzz::decode(text, Format::Json);
  MD::fuzz::decode(text, Format::Text);
  MD::fuzz::decode(text, Format::PriceText);

  if (haveCompressedLine(text)) {
    return 0;
  }
  std::string lines;
  bool isFirst = true;
  MD::fuzz::forEachLine(text, [&](const std::string& line) {
    // A byte-order mark is recognised only at the start of an input.
    if (!isFirst && line.rfind(kByteOrderMark, 0) == 0) {
      return;
    }
    isFirst = false;
    const Run alone = MD::fuzz::decode(line, Format::Json);
    checkLine(line, alone);
    lines += alone.out;
  });
  MD_PROPERTY(lines == json.out, "decodes lines otherwise alone:\n" + lines + "instead of\n" + json.out);
  return 0;
}
