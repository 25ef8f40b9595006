// Build a message, send its bytes, receive them, read it. Needs no configuration: the dictionary is in the program.

#include <md/md_message.h>
#include <md/md_mint.h>

#include <iostream>

// Each field is a constant: its id, and the type of its value.
constexpr MD::Field<MD::MD_Message::String> SYMBOL{1};
constexpr MD::Field<MD::MD_EpochNS> RECV_TIME{14};
constexpr MD::Field<double> BID{22};
constexpr MD::Field<int> BID_QTY{26};

int main() {
  MD::MD_FieldMap::loadText(
      "SYMBOL     1  STRING\n"
      "RECV_TIME 14  EPOCH_NSEC\n"
      "BID       22  DOUBLE\n"
      "BID_QTY   26  INT\n");

  MD::mInt quote;
  const bool isBuilt = quote.add(SYMBOL, "NEB/USD") && quote.add(BID, 184.15) && quote.add(BID_QTY, 300) &&
                       quote.add(RECV_TIME, MD::MD_EpochNS(1717407000173980747)) &&
                       quote.update(BID, 184.2);  // updated in place
  if (!isBuilt) {
    std::cerr << "a field was refused: the dictionary declares another type\n";
    return 1;
  }

  // A message always holds its serialised bytes, and these are views of them: there is no encoding step.
  const std::uint8_t* bytes = quote.data();
  const auto size = static_cast<std::uint32_t>(quote.size());

  // The receiver. The first byte selects the encoding; the result is null if it is unknown.
  const auto message = MD::MD_Message::createFromBytes(bytes, size);
  if (message == nullptr) {
    return 1;
  }
  if (const auto bid = message->get(BID)) {
    std::cout << size << " bytes, " << message->fieldCount() << " fields, bid " << *bid << "\n";
  }
  print(std::cout, *message);
  return 0;
}
