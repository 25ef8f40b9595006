// Build a message, send its bytes, receive them, read it. Uses the sample dictionary etc/field_map.txt: run it where
// that is found, in the repository's root or with CONFIG_PATH naming the folder.

#include <md/md_message.h>
#include <md/md_mint.h>

#include <iostream>

int main() {
  const MD::MD_FieldMap& fields = MD::MD_FieldMap::instance();
  const auto symbol = fields.nameToId("SYMBOL");
  const auto bid = fields.nameToId("BID");
  const auto bidQuantity = fields.nameToId("BID_QTY");
  const auto received = fields.nameToId("RECV_TIME");

  MD::mInt quote;
  quote.add(symbol, "NEB/USD");
  quote.add(bid, 184.15);
  quote.add(bidQuantity, 300);
  quote.add(received, MD::MD_EpochNS(1717407000173980747));
  quote.update(bid, 184.2);  // overwritten where it stands

  // The message is its serialised bytes at every moment: nothing is encoded here, and nothing copied.
  const std::uint8_t* bytes = quote.getBinary();
  const std::uint32_t size = quote.getSizeImpl();

  // The other side: the first byte tells the encoding.
  const auto message = MD::MD_Message::createFromBytes(bytes, size);
  double price = 0;
  if (message != nullptr && message->get(bid, price)) {
    std::cout << size << " bytes, " << message->fieldCount() << " fields, bid " << price << "\n" << *message;
  }
  return 0;
}
