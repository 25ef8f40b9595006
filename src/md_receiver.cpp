#include "md/md_receiver.h"

#include "md/md_datatypes.h"

namespace MD {

Receiver::Receiver() = default;

Receiver::~Receiver() = default;

MD_Message* Receiver::parse(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
  if (bytes == nullptr || sizeBytes == 0) {
    return nullptr;
  }
  const auto parsed = [=](auto& message) -> MD_Message* {
    message.setBinaryImpl(bytes, sizeBytes);
    return &message;
  };
  switch (bytes[0]) {
    case ENCODINGS::ITERMAP:
      return parsed(m_iterMap);
    case ENCODINGS::MINT:
      return parsed(m_mInt);
    case ENCODINGS::MSGT:
      return parsed(m_msgT);
    default:
      return nullptr;
  }
}

}  // namespace MD
