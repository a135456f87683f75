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
      rows_.push_back(Quotes::Row{symbol(i), {static_cast<int64_t>(10000 * (5 + below(400))), 0}});
    }
  }

  /// A random symbol moves by up to fifty cents, and never below one.
  const Quotes::Row& next() {
    Quotes::Row& row = rows_[below(kSymbols)];
    Quotes::Quote& quote = row.quote;
    const int64_t move = 100 * (static_cast<int64_t>(below(101)) - 50);
    quote.price = std::max<int64_t>(10000, quote.price + move);
    quote.size = static_cast<uint32_t>(100 * (1 + below(50)));
    return row;
  }

 private:
  uint64_t below(uint64_t limit) { return random_() % limit; }

  // 37 has no factor in common with 26 * 26 * 26: no two numbers give one symbol.
  static Quotes::Symbol symbol(unsigned number) {
    std::string text;
    unsigned rest = number * 37 + 4000;
    for (unsigned i = 0; i < 3; ++i, rest /= 26) text += static_cast<char>('A' + rest % 26);
    return std::string_view(text);
  }

  std::mt19937_64 random_;
  std::vector<Quotes::Row> rows_;
};

}  // namespace

int main() {
  Market market(20240229);
  std::cout << "symbol,price,size\n";
  for (unsigned i = 0; i < kRows; ++i) {
    const Quotes::Row& row = market.next();
    std::cout << Quotes::formatRow(row.symbol, row.quote) << '\n';
  }
  return std::cout.flush().good() ? 0 : 1;
}
