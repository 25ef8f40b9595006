// Received bytes of any encoding read without a message: every field reads, in every type, as it does in the message
// that is built from the bytes, and the records are those of the message.
#include "fuzz_dictionary.h"
#include "fuzz_target.h"
#include "support/peek_comparison.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::useDictionary();
  MD_SAME(MD::test::receivedDifference({data, data + size}));
  return 0;
}
