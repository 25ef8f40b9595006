// What the programs of the cluster share: subjects, partitions and the connection.
#ifndef CLUSTER_H
#define CLUSTER_H

#include <cstdint>
#include <cstdlib>

#include <iostream>
#include <string>
#include <string_view>

#include <md/md_fieldmap.h>
#include <md/md_peek.h>
#include <nats/nats.h>

namespace cluster {

constexpr const char* kStream = "MD";
constexpr std::uint64_t kPartitions = 3;

/// Ends the program when a call of the client library failed.
inline void require(natsStatus status, const char* what) {
  if (status != NATS_OK) {
    std::cerr << what << ": " << natsStatus_GetText(status) << '\n';
    std::exit(1);
  }
}

/// The symbol of a message, empty when it has none.
inline std::string symbolOf(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
  static const std::uint16_t id = MD::require("SYMBOL");
  MD::StringView16 symbol;
  return MD::peek(bytes, sizeBytes, id, symbol) ? std::string(std::string_view(symbol)) : std::string();
}

/// A value as one token of a subject, as mdmsg publish writes it.
inline std::string tokenOf(std::string_view value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string token = value.empty() ? "%" : "";
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte > 0x20 && byte < 0x7f && c != '.' && c != '*' && c != '>' && c != '%') {
      token += c;
    } else {
      token += {'%', kDigits[byte >> 4], kDigits[byte & 0xf]};
    }
  }
  return token;
}

/// Which worker handles a symbol: the same in every process, as {SYMBOL%3} of mdmsg publish.
inline std::uint64_t partitionOf(std::string_view symbol) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const char c : symbol) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  }
  return hash % kPartitions;
}

/// "md.1.AB": the partition before the symbol, so that a worker subscribes to "md.1.*".
inline std::string subjectOf(std::string_view symbol) {
  return "md." + std::to_string(partitionOf(symbol)) + '.' + tokenOf(symbol);
}

}  // namespace cluster

#endif
