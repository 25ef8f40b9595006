#include "md/md_price_output.h"

#include "message_printer.h"

namespace MD {

std::ostream& operator<<(std::ostream& out, const PriceOutput& price) {
  MessagePrinter(out, price.m_message, MessagePrinter::kPriceMode).print(price.m_message.begin());
  return out;
}

}  // namespace MD
