// Keeps the last message of each symbol of one partition, and answers queries for them: worker URL PARTITION
//
// It begins with a snapshot, the last message of each symbol, and continues with the messages after it: one
// subscription delivers both, so there is neither a gap nor a duplicate. A worker that replaces another one, or joins
// late, does the same. PARTITION "*" selects all partitions. At SIGTERM it prints its cache.
#include <csignal>
#include <cstdint>

#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <md/md_message.h>

#include "cluster.h"

using cluster::require;

namespace {

volatile std::sig_atomic_t g_isStopped = 0;

void stop(int) { g_isStopped = 1; }

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: worker URL PARTITION\n";
    return 2;
  }
  std::signal(SIGTERM, stop);
  const std::string partition = argv[2];
  const std::string subject = "md." + partition + ".*";
  const std::string question = "query." + partition + ".*";

  natsConnection* connection = nullptr;
  jsCtx* stream = nullptr;
  require(natsConnection_ConnectTo(&connection, argv[1]), "connect");
  require(natsConnection_JetStream(&stream, connection, nullptr), "JetStream");

  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = cluster::kStream;
  options.Ordered = true;  // what is lost on the way is fetched again, in order
  options.Config.DeliverPolicy = js_DeliverLastPerSubject;
  natsSubscription* messages = nullptr;
  require(js_SubscribeSync(&messages, stream, subject.c_str(), nullptr, &options, nullptr), "subscribe");
  natsSubscription* questions = nullptr;
  require(natsConnection_SubscribeSync(&questions, connection, question.c_str()), "subscribe");
  require(natsConnection_Flush(connection), "subscribe");

  std::map<std::string, std::vector<std::uint8_t>> cache;  // token of the symbol -> bytes of its last message
  std::uint64_t last = 0;
  bool isSnapshot = true;
  for (;;) {
    natsMsg* message = nullptr;
    // When it is asked to stop, it takes what is on the way.
    if (natsSubscription_NextMsg(&message, messages, g_isStopped != 0 ? 500 : 10) == NATS_OK) {
      jsMsgMetaData* about = nullptr;
      require(natsMsg_GetMetaData(&about, message), "read a message");
      const std::uint64_t sequence = about->Sequence.Stream;
      jsMsgMetaData_Destroy(about);
      if (sequence <= last) {
        std::cerr << "out of order: " << sequence << " after " << last << '\n';
        return 1;
      }
      last = sequence;
      const std::string name = natsMsg_GetSubject(message);
      const auto* const bytes = reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(message));
      cache[name.substr(name.rfind('.') + 1)].assign(bytes, bytes + natsMsg_GetDataLength(message));
      natsMsg_Destroy(message);
    } else if (g_isStopped != 0) {
      break;
    } else if (isSnapshot) {
      isSnapshot = false;
      std::cerr << "ready, " << cache.size() << " symbols\n";
    }
    while (natsSubscription_NextMsg(&message, questions, 0) == NATS_OK) {
      const std::string name = natsMsg_GetSubject(message);
      const auto found = cache.find(name.substr(name.rfind('.') + 1));
      const bool isKnown = found != cache.end();
      // No bytes: the symbol is not known.
      natsConnection_Publish(connection, natsMsg_GetReply(message), isKnown ? found->second.data() : nullptr,
                             isKnown ? static_cast<int>(found->second.size()) : 0);
      natsMsg_Destroy(message);
    }
  }
  for (const auto& [symbol, bytes] : cache) {
    const auto message = MD::MD_Message::createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::int64_t number = 0;
    const bool hasNumber = message != nullptr && message->get(MD::require("SEQ"), number);
    std::cout << symbol << ' ' << (hasNumber ? std::to_string(number) : "?") << '\n';
  }
  natsSubscription_Destroy(questions);
  natsSubscription_Destroy(messages);
  jsCtx_Destroy(stream);
  natsConnection_Destroy(connection);
}
