// SPDX-License-Identifier: MIT
//
// Looks symbols up in the table, without following it.
#include <zorbe/table.h>

#include <algorithm>
#include <iostream>
#include <thread>

#include "quote.h"

namespace {

using Prices = Zorbe::Table::Reader<Symbol, Quote>;

void lookUp(const Prices& prices, const char* symbol) {
  if (const auto quote = prices.get(symbol)) {
    std::cout << symbol << ' ' << quote->bid << ' ' << quote->ask << '\n';
  } else {
    std::cout << symbol << " has no record\n";
  }
}

// The same record again and again: the handle saves the search.
double highestBid(const Prices& prices, const char* symbol) {
  double highest = 0;
  const auto handle = prices.find(symbol);
  if (!handle) return highest;
  for (int i = 0; i < 1000; ++i) {
    Quote quote{};
    if (prices.read(*handle, quote)) highest = std::max(highest, quote.bid);
  }
  return highest;
}

// Each record is whole; together they are no snapshot.
double sumOfBids(const Zorbe::Table::View<Symbol, Quote>& prices) {
  double sum = 0;
  for (const auto& [symbol, quote] : prices.scan()) sum += quote.bid;
  return sum;
}

double sumInThread(const Prices& prices) {
  double sum = 0;
  std::thread worker([&sum, view = prices.view()] { sum = sumOfBids(view); });
  worker.join();
  return sum;
}

void printFreshness(const Prices& prices) {
  const Zorbe::Table::Info info = prices.info();
  std::cout << "published " << info.published << ", writer "
            << (prices.state() == Zorbe::Table::State::connected ? "connected" : "absent") << '\n';
}

}  // namespace

int main(int count, char** arguments) try {
  Prices prices("prices");
  for (int i = 1; i < count; ++i) lookUp(prices, arguments[i]);
  if (count > 1) std::cout << "highest bid " << highestBid(prices, arguments[1]) << '\n';
  std::cout << "sum " << sumOfBids(prices) << ' ' << sumInThread(prices) << '\n';
  printFreshness(prices);
} catch (const std::exception& failure) {
  std::cerr << "table-lookup: " << failure.what() << '\n';
  return 1;
}
