// A program that uses the C++ interface as installed. CONFIG_PATH names the folder of field_map.txt.
#include <cstdint>

#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <md/md_arrow.h>
#include <md/md_delta.h>
#include <md/md_field.h>
#include <md/md_file_search.h>
#include <md/md_frac_double.h>
#include <md/md_itermap.h>
#include <md/md_message.h>
#include <md/md_mint.h>
#include <md/md_msgt.h>
#include <md/md_price_output.h>

namespace {

// What only a library and a program with the same idea of types can do.
void printKind(const MD::MD_Message& message) {
  std::cout << "code " << static_cast<int>(message.getPB()) << ": "
            << (dynamic_cast<const MD::mInt*>(&message) != nullptr ? "mInt" : "another") << "\n";
}

template <class Function>
void printError(Function function) {
  try {
    function();
    std::cout << "no error\n";
  } catch (const MD::NULLStringException& error) {
    std::cout << "NULLStringException: " << error.what() << "\n";
  } catch (const std::domain_error& error) {
    std::cout << "std::domain_error: " << error.what() << "\n";
  }
}

}  // namespace

int main() {
  const MD::MD_FieldMap& fields = MD::MD_FieldMap::instance();
  const std::uint16_t bid = fields.nameToId("BID");
  const std::uint16_t symbol = fields.nameToId("SYMBOL");

  MD::mInt message;
  message.add(bid, 184.25);
  message.add(symbol, "NEB/USD");
  std::cout << message;
  printKind(message);

  const auto pool = std::make_shared<MD::ReusableContainer<MD::MsgData>>();
  MD::ReusableContainerWrapper<MD::MsgData> buffer(true, pool);
  std::cout << "a buffer of " << buffer->size() << " bytes\n";
  buffer.unset();
  const std::unique_ptr<MD::MD_Message> copy = MD::MD_Message::createFromBytes(
      message.getBinary(), message.getSizeImpl(), {pool, MD::MD_Message::DEFAULT_ALLOCATOR.second});
  printKind(*copy);
  printKind(MD::MsgT());
  printKind(MD::IterMap());

  MD::MsgT other;
  other.copyMsg(*copy);
  for (const auto& [id, value] : other) {
    std::cout << id << " = " << value << "\n";
  }
  std::cout << MD::frac_double_to_string(0.05) << "\n";
  std::ostringstream price;
  price << MD::PriceOutput(message);
  std::cout << (price.str().find("184.25") != std::string::npos ? "price\n" : "no price\n");

  // Typed fields, and what takes any received bytes.
  constexpr MD::Field<double> BID{22};
  constexpr MD::Field<MD::MD_Message::String> SYMBOL{1};
  constexpr MD::Field<MD::MD_Message::Buffer> REMOVED{900};
  const std::uint8_t truncated[] = {6, 1, 0, 2, 'A', 0, 22, 0, 8, 1, 2, 3};
  const auto received = MD::MD_Message::createFromBytes(truncated);
  MD::mInt target;
  std::cout << copyReadable(*received, target).size() << " field not copied\n";
  print(std::cout, *received);
  if (!target.update(BID, 2) || !target.update(SYMBOL, "AB")) {
    return 1;
  }
  MD::Delta delta(REMOVED);
  MD::IterMap changes;
  if (!delta.diff(message, target, changes) || !delta.apply(changes, message) || !sameFields(message, target)) {
    return 1;
  }
  std::cout << to_string(message) << message.value_or(BID, 0.0) << ", " << *MD::lookUp("ASK") << "\n";

  MD::ColumnBuilder columns({bid, symbol});
  ArrowArray batch;
  if (!columns.append(message) || !columns.exportBatch(&batch)) {
    return 1;
  }
  std::cout << batch.length << " row of " << batch.n_children << " columns\n";
  batch.release(&batch);

  printError([&] { fields.idToType(65535); });
  printError([] { MD::file_search(nullptr, MD::CONFIG_PATH, nullptr, "Korvane"); });
}
