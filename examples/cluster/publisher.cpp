// Publishes messages, each acknowledged by the stream: mdmsg generate --format u32le | publisher URL
//
// The stream keeps everything of the last hour. The subject holds partition and symbol, so all messages of a symbol go
// to one worker in their order.
#include <cstdint>
#include <cstdio>

#include <iostream>
#include <string>
#include <vector>

#include "cluster.h"

using cluster::require;

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: publisher URL <messages, each after its length in 4 bytes, little-endian\n";
    return 2;
  }
  natsConnection* connection = nullptr;
  jsCtx* stream = nullptr;
  require(natsConnection_ConnectTo(&connection, argv[1]), "connect");
  require(natsConnection_JetStream(&stream, connection, nullptr), "JetStream");

  jsStreamConfig config;
  jsStreamConfig_Init(&config);
  const char* subjects[] = {"md.*.*"};
  config.Name = cluster::kStream;
  config.Subjects = subjects;
  config.SubjectsLen = 1;
  config.MaxAge = std::int64_t{3600} * 1'000'000'000;
  require(js_AddStream(nullptr, stream, &config, nullptr, nullptr), "create the stream");  // fine if it is there

  std::uint64_t count = 0;
  std::vector<std::uint8_t> message;
  for (std::uint8_t length[4]; std::fread(length, 1, 4, stdin) == 4; ++count) {
    message.resize(length[0] | std::size_t{length[1]} << 8 | std::size_t{length[2]} << 16 |
                   std::size_t{length[3]} << 24);
    if (std::fread(message.data(), 1, message.size(), stdin) != message.size()) {
      std::cerr << "the input is truncated\n";
      return 1;
    }
    const std::string subject =
        cluster::subjectOf(cluster::symbolOf(message.data(), static_cast<std::uint32_t>(message.size())));
    require(js_PublishAsync(stream, subject.c_str(), message.data(), static_cast<int>(message.size()), nullptr),
            "publish");
  }
  // All acknowledgements have arrived. mdmsg publish also publishes again what a failed server did not acknowledge.
  require(js_PublishAsyncComplete(stream, nullptr), "wait for acknowledgements");
  std::cout << count << " messages published\n";
  jsCtx_Destroy(stream);
  natsConnection_Destroy(connection);
}
