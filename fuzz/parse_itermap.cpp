// Received bytes as an `IterMap`, whatever their first byte.
#include "fuzz_target.h"
#include "received_message.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::checkReceived(1, {data, data + size});
  return 0;
}
