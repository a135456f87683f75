// SPDX-License-Identifier: MIT
//
// A table of the installed package: what is put is read, and followed. Exits with 0 when it was.
#include <zorbe/table.h>

#include <iostream>

namespace {

struct Quote {
  double bid;
  double ask;
};
ZORBE_FIELDS(Quote, bid, ask);

}  // namespace

int main() {
  using namespace std::chrono_literals;
  Zorbe::Table::Writer<Zorbe::Table::Text<8>, Quote> writer("installed");
  writer.put("ABC", {99.5, 100.5});
  writer.publish();
  Zorbe::Table::Reader<Zorbe::Table::Text<8>, Quote> reader("installed");
  bool followed = false;
  while (!followed && reader.wait(10s)) {
    while (const auto change = reader.next()) followed |= change->key == "ABC";
  }
  const auto quote = reader.get("ABC");
  const bool good = followed && quote && quote->ask == 100.5;
  std::cout << (good ? "works" : "does not work") << "\n";
  return good ? 0 : 1;
}
