// Messages of any bytes in `mdmsg dump`: nothing outside them is read, and where the dump finds no problem, a receiver
// keeps every byte.
#include <cstring>

#include <memory>
#include <sstream>
#include <string>

#include "base/encodings.h"
#include "fuzz_dictionary.h"
#include "fuzz_target.h"
#include "md/md_message.h"
#include "messages/dump.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::useDictionary();
  // A block of exactly this length, so that the sanitizer detects reads past its end.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  if (size != 0) {
    std::memcpy(bytes.get(), data, size);
  }
  std::ostringstream written;
  MD::tool::Output out(written);
  const auto result = MD::tool::writeDump(bytes.get(), size, MD::MD_FieldMap::instance(), false, out);
  out.finish();
  const std::string rows = written.str();
  MD_PROPERTY(size == 0 || !rows.empty(), "shows nothing");
  MD_PROPERTY(!result.isTruncated || result.flaws != 0, "is truncated without a flaw");
  if (size == 0 || result.flaws != 0 || MD::tool::encodingName(bytes[0]) == nullptr) {
    return 0;
  }
  const auto message = MD::MD_Message::createFromBytes(bytes.get(), static_cast<std::uint32_t>(size));
  MD_PROPERTY(
      message != nullptr && message->getSizeImpl() == size && std::memcmp(message->getBinary(), bytes.get(), size) == 0,
      "finds no flaw where a receiver does:\n" + rows);
  return 0;
}
