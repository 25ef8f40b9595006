// Asks the worker that handles a symbol for its last message, and prints that: query URL SYMBOL
#include <cstdint>

#include <iostream>
#include <string>

#include <md/md_field_view.h>
#include <md/md_message.h>

#include "cluster.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: query URL SYMBOL\n";
    return 2;
  }
  natsConnection* connection = nullptr;
  cluster::require(natsConnection_ConnectTo(&connection, argv[1]), "connect");
  const std::string symbol = argv[2];
  const std::string subject = "query." + std::to_string(cluster::partitionOf(symbol)) + '.' + cluster::tokenOf(symbol);
  natsMsg* answer = nullptr;
  cluster::require(natsConnection_RequestString(&answer, connection, subject.c_str(), "", 5000), "ask the worker");
  const auto message = MD::MD_Message::createFromBytes(reinterpret_cast<const std::uint8_t*>(natsMsg_GetData(answer)),
                                                       static_cast<std::uint32_t>(natsMsg_GetDataLength(answer)));
  natsMsg_Destroy(answer);  // the message has a copy of its bytes
  natsConnection_Destroy(connection);
  if (message == nullptr) {
    std::cerr << "there is no message of " << symbol << '\n';
    return 1;
  }
  std::cout << MD::to_string(*message);
}
