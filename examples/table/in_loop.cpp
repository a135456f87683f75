// SPDX-License-Identifier: MIT
//
// Reads one table and writes another in the same event loop: the difference of bid and ask.
#include <brask/linux/event_loop.h>
#include <zorbe/table/in_loop.h>

#include <iostream>

#include "quote.h"

int main() try {
  Brask::Linux::EventLoop loop;
  Zorbe::Table::LoopReader<Symbol, Quote> prices("prices");
  Zorbe::Table::LoopWriter<Symbol, double> spreads("spreads");
  prices.onReady([&] {
    while (const auto change = prices.next()) {
      const std::string_view symbol = change->key.view();
      const Quote& quote = change->value;
      if (change->kind == Zorbe::Table::Kind::put) spreads.put(symbol, quote.ask - quote.bid);
      if (change->kind == Zorbe::Table::Kind::erased) spreads.erase(symbol);
    }
    spreads.publish();
  });
  loop.run();
} catch (const std::exception& failure) {
  std::cerr << "table-in-loop: " << failure.what() << '\n';
  return 1;
}
