// SPDX-License-Identifier: MIT
//
// A copy of the table, in a program whose own loop waits for other things, too: a line on standard
// input prints the copy, its end ends the program.
#include <poll.h>
#include <unistd.h>

#include <iostream>

#include "copy.h"
#include "quote.h"

namespace {

void print(const Copy<Symbol, Quote>& copy) {
  std::cout << copy.records.size() << " records";
  for (const auto& [symbol, quote] : copy.records) std::cout << ", " << symbol << ' ' << quote.bid;
  std::cout << std::endl;
}

}  // namespace

int main() try {
  Zorbe::Table::Reader<Symbol, Quote> prices("prices");
  Copy<Symbol, Quote> copy;
  pollfd waiting[] = {{STDIN_FILENO, POLLIN, 0}, {prices.fd(), POLLIN, 0}};
  while (::poll(waiting, 2, -1) > 0) {
    if (waiting[1].revents != 0) {
      prices.process();
      while (const auto change = prices.next()) copy.apply(*change);
    }
    char input[256];
    if (waiting[0].revents == 0) continue;
    if (::read(STDIN_FILENO, input, sizeof input) <= 0) break;
    print(copy);
  }
} catch (const std::exception& failure) {
  std::cerr << "table-polled: " << failure.what() << '\n';
  return 1;
}
