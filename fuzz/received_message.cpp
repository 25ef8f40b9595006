#include "received_message.h"

#include <algorithm>
#include <set>
#include <sstream>

#include "fuzz_dictionary.h"
#include "fuzz_target.h"
#include "md/md_fieldmap.h"
#include "md/md_price_output.h"
#include "support/assertions.h"
#include "support/captured_errors.h"
#include "support/reference_comparison.h"
#include "support/reference_model.h"

namespace MD::fuzz {
namespace {

using test::Bytes;
using test::Ids;
using test::ReferenceMessage;

constexpr std::uint8_t kMInt = ReferenceMessage::kMInt;
constexpr std::size_t kLongestString = 65535;

std::string inCode(std::uint8_t code) { return " (encoding " + std::to_string(code) + ")"; }

std::set<std::uint16_t> distinctIds(const MD_Message& message) {
  const Ids ids = test::idsOf(message);
  return {ids.begin(), ids.end()};
}

const test::ValueType* valueTypeOf(std::uint16_t id) {
  const std::uint8_t code = MD_FieldMap::instance().packed(id).type;
  for (const test::ValueType& type : test::valueTypes()) {
    if (type.code == code) {
      return &type;
    }
  }
  return nullptr;
}

/// Whether an encoding takes a value that another one gave.
bool fits(std::uint8_t code, std::uint16_t id, const std::string& raw) {
  switch (MD_FieldMap::instance().packed(id).type) {
    case DATATYPES::STRING:
      return code != kMInt || raw.size() < 255;
    case DATATYPES::BUFFER:
      return code != kMInt || raw.size() <= 255;
    default:
      return true;
  }
}

/// Bytes of the encoding, at least `size` of them, that are hardly ever zero.
Bytes noise(std::uint8_t code, std::size_t size) {
  const auto message = MD_Message::createFromPB(code);
  const Bytes header = test::bytesOf(*message);
  const std::string value(255, '\xFF');
  message->add(test::id::kBuffer, test::bufferOf(value));
  const Bytes one = test::bytesOf(*message);
  Bytes bytes = header;
  while (bytes.size() < size) {
    bytes.insert(bytes.end(), one.begin() + static_cast<std::ptrdiff_t>(header.size()), one.end());
  }
  return bytes;
}

template <class View>
void checkView(const MD_Message& message, std::uint16_t id) {
  View view;
  if (message.get(id, view) && view.length != 0) {
    const auto* const first = reinterpret_cast<const std::uint8_t*>(view.data);
    MD_PROPERTY(first >= message.getBinary() && first + view.length <= message.getBinary() + message.getSizeImpl(),
                "a view of field " + std::to_string(id) + " lies outside the message");
  }
}

/// Bytes, ids and values.
void checkSame(const MD_Message& message, const MD_Message& other) {
  MD_PROPERTY(test::bytesOf(message) == test::bytesOf(other),
              "holds " + test::hexOf(other) + "\ninstead of " + test::hexOf(message));
  MD_PROPERTY(test::idsOf(message) == test::idsOf(other), "lists other ids");
  MD_PROPERTY(message.fieldCount() == other.fieldCount(), "counts other fields");
  MD_PROPERTY(valuesOf(message).raw == valuesOf(other).raw, "holds other values");
}

void checkParsedAgain(const MD_Message& message) {
  test::CapturedErrors errors;
  const auto again = receive(message.getPB(), test::bytesOf(message));
  const std::string reports = errors.take();
  MD_PROPERTY(reports.empty(), "reports a field of its own: " + reports);
  checkSame(message, *again);
}

void checkPrintOuts(const MD_Message& message, bool isWhole) {
  const test::RecordedAssertions assertions;
  std::ostringstream plain;
  plain << message;
  std::ostringstream price;
  price << PriceOutput(message);
  const auto ids = distinctIds(message);
  const bool hasPrice = std::any_of(ids.begin(), ids.end(), [](std::uint16_t id) {
    const auto row = MD_FieldMap::instance().findById(id);
    return row != MD_FieldMap::instance().end() && row->name.find("X_") != std::string::npos;
  });
  MD_PROPERTY(hasPrice || plain.str() == price.str(), "prints as a price\n" + price.str() + "and else\n" + plain.str());
  MD_PROPERTY(!isWhole || assertions.entries().empty(), "asserts " + assertions.entries().front());
}

void checkCopy(const MD_Message& source, std::uint8_t code) {
  const Values held = valuesOf(source);
  Values expected;
  expected.isWhole = held.isWhole;
  for (const auto& [id, raw] : held.raw) {
    if (fits(code, id, raw)) {
      expected.raw[id] = raw;
    } else {
      expected.isWhole = false;
    }
  }
  const test::RecordedAssertions assertions;
  const auto copy = MD_Message::createFromPB(code);
  copy->copyMsg(source);
  const Values copied = valuesOf(*copy);
  MD_PROPERTY(copied.raw == expected.raw, "a copy holds other values" + inCode(code));
  MD_PROPERTY(!expected.isWhole || assertions.entries().empty(), "a copy asserts " + assertions.entries().front());
  MD_PROPERTY(copy->fieldCount() == expected.raw.size(), "a copy counts other fields" + inCode(code));
  const auto back = source.createEmpty();
  back->copyMsg(*copy);
  MD_PROPERTY(valuesOf(*back).raw == expected.raw, "a copy back holds other values" + inCode(code));

  // A string of the greatest length has the length field 0 in an IterMap, so that its characters are walked as records.
  const bool hasLongest = std::any_of(expected.raw.begin(), expected.raw.end(),
                                      [](const auto& value) { return value.second.size() == kLongestString; });
  if (!hasLongest) {
    MD_PROPERTY(copied.isWhole && test::idsOf(*copy).size() == expected.raw.size(), "a copy lists other ids");
    checkParsedAgain(*copy);
  }
}

}  // namespace

Values valuesOf(const MD_Message& message) {
  Values values;
  for (const std::uint16_t id : distinctIds(message)) {
    const test::ValueType* const type = valueTypeOf(id);
    std::string raw;
    if (type != nullptr && type->get(message, id, 0, raw)) {
      values.raw[id] = raw;
    } else {
      values.isWhole = false;
    }
  }
  return values;
}

std::unique_ptr<MD_Message> receive(std::uint8_t code, const Bytes& bytes) {
  auto message = MD_Message::createFromPB(code);
  const Bytes former = noise(code, bytes.size() + 16);
  message->setBinaryImpl(former.data(), static_cast<std::uint32_t>(former.size()));
  const test::HeapBlock block(bytes);
  MD_PROPERTY(message->setBinaryImpl(block.data(), block.size()), "does not take bytes" + inCode(code));
  return message;
}

void checkReceived(std::uint8_t code, const Bytes& bytes) {
  useDictionary();
  test::CapturedErrors errors;
  const auto message = receive(code, bytes);
  ReferenceMessage model(static_cast<ReferenceMessage::Encoding>(code));
  model.setBinary(bytes);
  MD_SAME(test::differenceOf(*message, model));
  const std::string reports = errors.take();
  const std::string expected = model.takeErrors();
  MD_PROPERTY(reports == expected, "reports\n" + reports + "instead of\n" + expected);

  std::set<std::uint16_t> ids = distinctIds(*message);
  MD_PROPERTY(message->fieldCount() == ids.size(), "counts other fields than it lists");
  ids.insert({test::id::kUnknown, test::id::kBeyond, test::id::kInt2});
  for (const std::uint16_t id : ids) {
    MD_SAME(test::fieldDifference(*message, model, id));
    checkView<MD_Message::String>(*message, id);
    checkView<MD_Message::Buffer>(*message, id);
  }
  MD_SAME(test::printDifference(*message, model));

  checkPrintOuts(*message, valuesOf(*message).isWhole);
  checkParsedAgain(*message);
  for (const std::uint8_t other : kEncodings) {
    checkCopy(*message, other);
  }
  const auto clone = message->clone();
  checkSame(*message, *clone);
  checkSame(*message, *clone->moveToNew());
}

}  // namespace MD::fuzz
