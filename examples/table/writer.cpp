// SPDX-License-Identifier: MIT
#include <zorbe/table.h>

#include <iostream>

#include "quote.h"

int main() try {
  Zorbe::Table::Writer<Symbol, Quote> prices("prices");
  std::string symbol;
  for (Quote quote{}; std::cin >> symbol >> quote.bid >> quote.ask;) {
    prices.put(symbol, quote);
    prices.publish();
  }
} catch (const std::exception& failure) {
  std::cerr << "table-writer: " << failure.what() << '\n';
  return 1;
}
