#include "nats/headers.h"

#include <unistd.h>

#include <charconv>
#include <chrono>
#include <string_view>

#include "base/errors.h"
#include "base/hex.h"
#include "base/quoted_text.h"
#include "md/md_fieldmap.h"

namespace MD::tool {
namespace {

/// @throws UsageError for a name that a header or a message id cannot hold
std::string checked(const std::string& publisher) {
  constexpr std::size_t kMostBytes = 100;
  bool isUsable = !publisher.empty() && publisher.size() <= kMostBytes;
  for (const char c : publisher) {
    isUsable = isUsable && c > 0x20 && c < 0x7f;
  }
  if (!isUsable) {
    throw UsageError("--publisher: " + inQuotes(publisher) + " is not 1 to 100 printable ASCII characters");
  }
  return publisher;
}

std::string nameOfRun() {
  char host[65] = "";
  static_cast<void>(gethostname(host, sizeof host - 1));
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::string name;
  for (const char c : std::string_view(host)) {
    name += c > 0x20 && c < 0x7f ? c : '-';
  }
  return name + '.' + std::to_string(getpid()) + '.' +
         std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

std::string ownFingerprint() { return hexNumber(MD_FieldMap::instance().fingerprint()).substr(2); }

HeaderWriter::HeaderWriter(const std::optional<std::string>& publisher)
    : m_publisher(publisher ? checked(*publisher) : nameOfRun()), m_dictionary(ownFingerprint()) {}

natsStatus HeaderWriter::write(const std::optional<std::int64_t>& timeNs, const Endpoint& source, natsMsg* to) {
  natsStatus status = natsMsgHeader_Set(to, kDictionaryHeader, m_dictionary.c_str());
  const auto set = [&](const char* name, const char* value) {
    status = status == NATS_OK ? natsMsgHeader_Set(to, name, value) : status;
  };
  set(kPublisherHeader, m_publisher.c_str());
  if (timeNs) {
    char digits[24];
    *std::to_chars(digits, digits + sizeof digits - 1, *timeNs).ptr = '\0';
    set(kTimeHeader, digits);
  }
  if (source.port != 0) {
    if (m_sourceText.empty() || m_source.port != source.port || m_source.address != source.address) {
      m_source = source;
      m_sourceText = textOf(m_source);
    }
    set(kSourceHeader, m_sourceText.c_str());
  }
  return status;
}

std::optional<std::int64_t> capturedNs(natsMsg* message) {
  const char* text = nullptr;
  if (natsMsgHeader_Get(message, kTimeHeader, &text) != NATS_OK || text == nullptr) {
    return std::nullopt;
  }
  const std::string_view digits(text);
  std::int64_t ns = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), ns);
  const bool isWhole = result.ec == std::errc() && result.ptr == digits.data() + digits.size();
  return isWhole && ns >= 0 ? std::optional<std::int64_t>(ns) : std::nullopt;
}

}  // namespace MD::tool
