// Operations on two messages and their models, which agree after every step. The first byte chooses the encoding.
#include "fuzz_input.h"
#include "fuzz_target.h"
#include "support/dictionary.h"
#include "support/message_sequence.h"

namespace {

using MD::test::ReferenceMessage;

constexpr ReferenceMessage::Encoding kEncodings[] = {ReferenceMessage::kMInt, ReferenceMessage::kIterMap,
                                                     ReferenceMessage::kMsgT};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  [[maybe_unused]] static const bool isInstalled = (MD::test::loadDictionary(MD::test::kDictionary), true);
  MD::fuzz::FuzzInput input(data, size);
  const ReferenceMessage::Encoding encoding = kEncodings[input.below(3)];
  MD::test::MessageSequence sequence(encoding, input);
  while (!input.isAtEnd() && sequence.runStep()) {
  }
  const MD::test::CapturedErrors errors;
  MD_SAME(sequence.finish());
  return 0;
}
