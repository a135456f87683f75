// SPDX-License-Identifier: MIT
//
// quotes-reader: follows a table until a signal ends it.
#include <brask/linux/stream_debug_handler.h>
#include <poll.h>
#include <zorbe/table.h>

#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>

#include "cli.h"
#include "quote.h"

namespace {

using namespace Quotes;
using Zorbe::Table::Kind;
using Zorbe::Table::State;

using Reader = Zorbe::Table::Reader<Symbol, Quote>;

constexpr const char* kUsageText =
    "Usage: quotes-reader NAME [options]\n"
    "\n"
    "Keeps its own copy of the table NAME up to date until SIGINT or SIGTERM, then says\n"
    "how it went; SIGUSR1 says so at once. Waits for a writer when there is none.\n"
    "\n"
    "  --print       print the copy as well, as \"symbol,price,size\"\n"
    "  --every MS    rest that long between two looks (0: follow every publish)\n"
    "  --events      say when a writer comes or goes and a table is mapped\n"
    "  --get SYMBOL  print one quote from the shared memory, and end\n"
    "  --level N     print the library's messages up to this level, -1 for none (-1)\n"
    "  --help        this text\n"
    "\n"
    "Environment: SHMEM_ROOT is the directory of all tables (/var/shmem/zorbes).\n"
    "Exit codes: 0 done, 1 no such symbol, 2 wrong usage, 4 any other failure.\n";

struct Options {
  std::string name;
  std::string symbol;
  bool print = false;
  bool events = false;
  int restMilliseconds = 0;
  int level = -1;
};

/// Follows the table, and says what happens.
class Program {
 public:
  Program(const Options& options, Reader& table) : options_(options), table_(table) {}

  int run(const Signals& signals) {
    std::cout << "following " << options_.name << std::endl;
    pollfd waiting[] = {{signals.fd(), POLLIN, 0}, {table_.fd(), POLLIN, 0}};
    for (int signal = 0; signal != SIGINT && signal != SIGTERM;) {
      static_cast<void>(::poll(waiting, 2, -1));  // a failure makes it look, which does no harm
      table_.process();
      follow();
      signal = signals.take(options_.restMilliseconds);
      if (signal != 0) printState();
    }
    return kOk;
  }

 private:
  void follow() {
    printEvents();
    try {
      while (const auto change = table_.next()) apply(*change);
    } catch (const Brask::Exception& unreadable) {  // it is followed again when it can be read
      std::cerr << unreadable.what() << std::endl;
    }
  }

  void apply(const Zorbe::Table::Change<Symbol, Quote>& change) {
    Copy& copy = isComplete_ ? copy_ : next_;
    if (change.kind == Kind::put) copy[change.key] = change.value;
    if (change.kind == Kind::erased) copy.erase(change.key);
    if (change.kind == Kind::complete) copy_ = std::move(next_);
    if (change.kind == Kind::complete || change.kind == Kind::reset) {
      next_.clear();
      isComplete_ = change.kind == Kind::complete;
    }
    applied_ += change.kind == Kind::put || change.kind == Kind::erased ? 1u : 0u;
  }

  void printEvents() {
    const uint64_t incarnation = table_.info().incarnation;
    const State state = table_.state();
    const bool isOther = std::exchange(incarnation_, incarnation) != incarnation;
    const State before = std::exchange(state_, state);
    if (isOther) printEvent("mapped incarnation=" + std::to_string(incarnation));
    if (before == State::connected && state != before) printEvent("departed");
    if (state == State::connected && state != before) printEvent("connected");
  }

  void printEvent(const std::string& event) const {
    if (!options_.events) return;
    const std::chrono::nanoseconds now = std::chrono::steady_clock::now().time_since_epoch();
    std::cout << "event " << event << " at=" << now.count() << std::endl;
  }

  void printState() const {
    const Zorbe::Table::Info info = table_.info();
    if (info.incarnation == 0) {
      std::cout << "reader without a table" << std::endl;
      return;
    }
    Digest digest;
    for (const auto& [symbol, quote] : copy_) {
      digest.add(symbol, quote);
      if (options_.print) std::cout << formatRow(symbol, quote) << '\n';
    }
    std::cout << "reader incarnation=" << info.incarnation << " sequence=" << info.position
              << " digest=" << digest.text() << " symbols=" << copy_.size()
              << " connected=" << (table_.state() == State::connected ? "yes" : "no")
              << " applied=" << applied_ << std::endl;
  }

  const Options& options_;
  Reader& table_;
  Copy copy_;
  Copy next_;  // after a reset, until it is complete
  bool isComplete_ = false;
  uint64_t incarnation_ = 0;
  State state_ = State::waiting;
  uint64_t applied_ = 0;
};

int printOne(const Reader& table, const std::string& symbol) {
  if (const auto quote = table.get(symbol)) {
    std::cout << formatRow(Symbol(symbol), *quote) << std::endl;
    return kOk;
  }
  const bool isThere = table.state() != State::waiting;
  std::cerr << "quotes-reader: " << (isThere ? "no symbol " + symbol : "no table") << std::endl;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  const std::vector<Argument> arguments = {
      {"print", false, [&](const std::string&) { options.print = true; }},
      {"every", true,
       [&](const std::string& value) {
         options.restMilliseconds = static_cast<int>(parseNumber("--every", value, 0, 3600000));
       }},
      {"events", false, [&](const std::string&) { options.events = true; }},
      {"get", true, [&](const std::string& value) { options.symbol = value; }},
      {"level", true, [&](const std::string& value) { options.level = parseLevel(value); }}};
  return runProgram(argc, argv, kUsageText, arguments, [&](const std::string& name) {
    options.name = name;
    const Signals signals;
    Brask::Linux::StreamDebugHandler log(std::cerr, options.level, {200, 50});
    Zorbe::Table::Options tableOptions;
    tableOptions.keyName = "symbol";
    tableOptions.log = &log;
    Reader table(name, tableOptions);
    if (!options.symbol.empty()) return printOne(table, options.symbol);
    return Program(options, table).run(signals);
  });
}
