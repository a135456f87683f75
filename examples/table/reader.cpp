// SPDX-License-Identifier: MIT
#include <zorbe/table.h>

#include <iostream>

#include "quote.h"

int main() try {
  Zorbe::Table::Reader<Symbol, Quote> prices("prices");
  for (;;) {
    prices.wait(std::chrono::nanoseconds::max());  // until next() has something
    while (const auto change = prices.next()) {
      if (change->kind != Zorbe::Table::Kind::put) continue;
      std::cout << change->key << ' ' << change->value.bid << ' ' << change->value.ask << std::endl;
    }
  }
} catch (const std::exception& failure) {
  std::cerr << "table-reader: " << failure.what() << '\n';
  return 1;
}
