// SPDX-License-Identifier: MIT
//
// Writes the rows of ticks.csv to standard output: the same bytes on every host, since
// std::mt19937_64 is exact by the language and nothing here uses floating point.
//
//     make-ticks > examples/quotes/ticks.csv
#include <algorithm>
#include <cstdint>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "quote.h"

namespace {

constexpr unsigned kSymbols = 400;
constexpr unsigned kRows = 60000;

class Market {
 public:
  explicit Market(uint64_t seed) : random_(seed) {
    for (unsigned i = 0; i < kSymbols; ++i) {
      quotes_.push_back({symbol(i), static_cast<int64_t>(10000 * (5 + below(400))), 0});
    }
  }

  /// A random symbol moves by up to fifty cents, and never below one.
  const Quotes::Quote& next() {
    Quotes::Quote& quote = quotes_[below(kSymbols)];
    const int64_t move = 100 * (static_cast<int64_t>(below(101)) - 50);
    quote.price = std::max<int64_t>(10000, quote.price + move);
    quote.size = static_cast<uint32_t>(100 * (1 + below(50)));
    return quote;
  }

 private:
  uint64_t below(uint64_t limit) { return random_() % limit; }

  // 37 has no factor in common with 26 * 26 * 26: no two numbers give one symbol.
  static std::string symbol(unsigned number) {
    std::string text;
    unsigned rest = number * 37 + 4000;
    for (unsigned i = 0; i < 3; ++i, rest /= 26) text += static_cast<char>('A' + rest % 26);
    return text;
  }

  std::mt19937_64 random_;
  std::vector<Quotes::Quote> quotes_;
};

}  // namespace

int main() {
  Market market(20240229);
  std::cout << "symbol,price,size\n";
  for (unsigned row = 0; row < kRows; ++row) std::cout << Quotes::formatRow(market.next()) << '\n';
  return std::cout.flush().good() ? 0 : 1;
}
