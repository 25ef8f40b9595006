// How a message differs from its model. Each function returns what differs in words, empty when nothing does.
#ifndef MD_TESTS_SUPPORT_REFERENCE_COMPARISON_H
#define MD_TESTS_SUPPORT_REFERENCE_COMPARISON_H

#include <cstdint>

#include <algorithm>
#include <sstream>
#include <string>

#include "md/md_message.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/messages.h"
#include "support/reference_model.h"

namespace MD::test {

/// The bytes, and what is observed of the message as a whole.
inline std::string differenceOf(const MD_Message& message, const ReferenceMessage& model) {
  const Bytes& bytes = model.bytes();
  if (message.getSizeImpl() != bytes.size() || !std::equal(bytes.begin(), bytes.end(), message.getBinary())) {
    return "holds " + hexOf(message) + "\ninstead of " + toHex(bytes);
  }
  if (message.fieldCount() != model.fieldCount()) {
    return "counts " + std::to_string(message.fieldCount()) + " fields instead of " +
           std::to_string(model.fieldCount());
  }
  if (idsOf(message) != model.ids()) {
    return "lists other ids";
  }
  return message.emptyImpl() == model.isEmpty() ? "" : "is empty or not";
}

/// One field: its position, its value read as each type, and what that writes to standard error.
inline std::string fieldDifference(const MD_Message& message, ReferenceMessage& model, std::uint16_t id) {
  const std::string field = "field " + std::to_string(id);
  if (message.existsImpl(id) != model.exists(id)) {
    return field + " exists or not";
  }
  std::uint8_t code = 0;
  std::uint32_t size = 0;
  const std::uint8_t* const data = message.fieldData(id, code, size);
  const auto located = model.locate(id);
  if ((data != nullptr) != located.has_value() || (located && (located->type != code || located->sizeBytes != size ||
                                                               message.getBinary() + located->offset != data))) {
    return field + " lies elsewhere";
  }
  CapturedErrors errors;
  for (const ValueType& type : valueTypes()) {
    std::string raw;
    const bool result = type.get(message, id, 0, raw);
    const auto expected = model.get(id, type.code);
    if (result != expected.has_value() || raw != (expected ? *expected : type.raw(0))) {
      return field + " reads otherwise as " + type.name;
    }
  }
  return errors.take() == model.takeErrors() ? "" : "reading " + field + " writes something else";
}

/// The formatted text, and what that writes to standard error. Fields that cannot be read are no difference.
inline std::string printDifference(const MD_Message& message, ReferenceMessage& model) {
  const RecordedAssertions assertions;
  CapturedErrors errors;
  std::ostringstream out;
  out << message;
  const std::string expected = model.print();
  if (out.str() != expected) {
    return "prints\n" + out.str() + "instead of\n" + expected;
  }
  return errors.take() == model.takeErrors() ? "" : "printing writes something else";
}

}  // namespace MD::test

#endif
