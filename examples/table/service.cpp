// SPDX-License-Identifier: MIT
//
// A writer as a service runs it: a standby waits for the first one to end, the number of records is
// limited, only the group may read, and each failure is answered.
#include <zorbe/exceptions.h>
#include <zorbe/table.h>

#include <iostream>
#include <string>

#include "quote.h"

namespace {

using Prices = Zorbe::Table::Writer<Symbol, Quote>;

Zorbe::Table::Options optionsOf(const char* waitForLock) {
  Zorbe::Table::Options options;
  options.records = 1000;  // room from the start
  options.maxRecords = 2;  // put() of a third key throws
  options.mode = 0640;     // others may not read
  options.waitForLock = std::stod(waitForLock);
  return options;
}

// A record that there is no room for is not stored; the others stay as they are.
void store(Prices& prices, const std::string& symbol, const Quote& quote) {
  try {
    prices.put(symbol, quote);
  } catch (const Zorbe::Table::Error& error) {
    switch (error.code()) {
      case Zorbe::Table::ErrorCode::full:
      case Zorbe::Table::ErrorCode::noSpace:
      case Zorbe::Table::ErrorCode::tooLarge:
        std::cerr << "left out: " << error.what() << '\n';
        break;
      default:
        throw;
    }
  }
}

}  // namespace

int main(int count, char** arguments) try {
  Prices prices("prices", optionsOf(count > 1 ? arguments[1] : "0"));
  std::cout << "writing, " << prices.size() << " records" << std::endl;
  std::string symbol;
  for (Quote quote{}; std::cin >> symbol >> quote.bid >> quote.ask;) store(prices, symbol, quote);
} catch (const Zorbe::DuplicateWriterException& refusal) {
  std::cerr << "table-service: process " << refusal.pid << " writes the table\n";
  return 2;
} catch (const std::exception& failure) {
  std::cerr << "table-service: " << failure.what() << '\n';
  return 1;
}
