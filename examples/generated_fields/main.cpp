// A program whose constants are generated from a dictionary each time that it is built. At its start it checks the
// dictionary that it finds at run time.
//
//   generated_fields     in a folder with field_map.txt, or with CONFIG_PATH naming one

#include <iostream>
#include <stdexcept>

#include <md/md_mint.h>

#include "fields.h"

int main() {
  try {
    fields::check();
  } catch (const std::runtime_error& error) {
    std::cerr << "generated_fields: " << error.what() << '\n';
    return 1;
  }

  MD::mInt quote;
  // quote.add(fields::BID_QTY, 184.15) does not compile: the dictionary declares an INT.
  if (!quote.add(fields::SYMBOL, "NEB/USD") || !quote.add(fields::BID, 184.15) || !quote.add(fields::BID_QTY, 300)) {
    return 1;
  }
  std::cout << quote.value_or(fields::BID_QTY, 0) << " at " << quote.value_or(fields::BID, 0.0) << '\n';
  std::cout << (quote.contains(fields::ASK) ? "an ask\n" : "no ask\n");
  return 0;
}
