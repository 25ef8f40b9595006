// Received bytes of any encoding through the factory: the first byte alone says which, the message is the one that the
// encoding's class makes of the bytes, and with pools of the caller's own nothing is different.
#include <algorithm>
#include <iterator>
#include <memory>

#include "fuzz_dictionary.h"
#include "fuzz_target.h"
#include "md/md_message.h"
#include "received_message.h"
#include "support/captured_errors.h"
#include "support/messages.h"

namespace {

using MD::MD_Message;
using MD::test::Bytes;

const MD_Message::Allocator& ownPools() {
  static const MD_Message::Allocator pools{std::make_shared<MD::ReusableContainer<MD::MsgData>>(),
                                           std::make_shared<MD::ReusableContainer<MD::Optimizer>>()};
  return pools;
}

void checkSameAs(const MD_Message& expected, const MD_Message& message) {
  MD_PROPERTY(message.getPB() == expected.getPB(), "is of another encoding");
  MD_PROPERTY(MD::test::bytesOf(message) == MD::test::bytesOf(expected), "holds other bytes");
  MD_PROPERTY(MD::test::idsOf(message) == MD::test::idsOf(expected), "lists other ids");
  MD_PROPERTY(message.fieldCount() == expected.fieldCount(), "counts other fields");
  MD_PROPERTY(MD::fuzz::valuesOf(message).raw == MD::fuzz::valuesOf(expected).raw, "holds other values");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MD::fuzz::useDictionary();
  const MD::test::CapturedErrors errors;
  std::unique_ptr<MD_Message> message;
  std::unique_ptr<MD_Message> fromOwnPools;
  {
    const MD::test::HeapBlock block(data, size);
    message = MD_Message::createFromBytes(block.data(), block.size());
    fromOwnPools = MD_Message::createFromBytes(block.data(), block.size(), ownPools());
  }
  const auto* const code =
      std::find(std::begin(MD::fuzz::kEncodings), std::end(MD::fuzz::kEncodings), size != 0 ? data[0] : 0);
  const bool isRecognised = code != std::end(MD::fuzz::kEncodings);
  MD_PROPERTY((message != nullptr) == isRecognised && (fromOwnPools != nullptr) == isRecognised,
              "recognises bytes or not");
  if (!isRecognised) {
    return 0;
  }
  const auto expected = MD::fuzz::receive(*code, Bytes(data, data + size));
  checkSameAs(*expected, *message);
  checkSameAs(*expected, *fromOwnPools);

  const auto again = MD_Message::createFromBytes(message->getBinary(), message->getSizeImpl(), ownPools());
  MD_PROPERTY(again != nullptr, "does not recognise its own bytes");
  checkSameAs(*message, *again);
  return 0;
}
