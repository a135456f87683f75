// SPDX-License-Identifier: MIT
//
// Prints what one get of bench_python's table costs in C++: nanoseconds, a line for each block.
// usage: bench_python_get <name> <key> <blocks>
#include <zorbe/table.h>

#include <cstdlib>
#include <iostream>

#include "table/store.h"

namespace {

struct Quote {
  int64_t price;
  uint32_t size;
};
ZORBE_FIELDS(Quote, price, size);

}  // namespace

int main(int count, char** arguments) try {
  if (count != 4) return 2;
  constexpr int kReads = 200'000;
  const Zorbe::Table::Reader<Zorbe::Table::Text<15>, Quote> quotes(arguments[1]);
  for (int block = std::atoi(arguments[3]); block > 0; --block) {
    const double before = Bench::nanoseconds();
    for (int i = 0; i < kReads; ++i) {
      const auto quote = quotes.get(arguments[2]);
      if (!quote) return 1;
      Bench::use(*quote);
    }
    std::cout << (Bench::nanoseconds() - before) / kReads << std::endl;
  }
} catch (const std::exception& failure) {
  std::cerr << "bench_python_get: " << failure.what() << '\n';
  return 1;
}
