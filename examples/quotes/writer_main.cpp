// SPDX-License-Identifier: MIT
//
// quotes-writer: becomes the writer of a table and publishes the rows of its standard input.
#include <brask/linux/stream_debug_handler.h>
#include <unistd.h>
#include <zorbe/table.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <iostream>
#include <optional>

#include "cli.h"
#include "feed.h"
#include "quote.h"

namespace {

using namespace Quotes;

using Writer = Zorbe::Table::Writer<Symbol, Quote>;
using Reader = Zorbe::Table::Reader<Symbol, Quote>;

constexpr const char* kUsageText =
    "Usage: quotes-writer NAME [options] < FILE\n"
    "\n"
    "Publishes the rows \"symbol,price,size\" of its standard input in the table NAME. Rows\n"
    "that make no sense are reported on standard error and skipped. Stays the writer until\n"
    "SIGINT or SIGTERM; SIGUSR1 prints the state.\n"
    "\n"
    "  --slots N     room for N symbols from the start (1024); the table grows\n"
    "  --log N       entries of the change log (0: by the number of symbols)\n"
    "  --rate N      publish N rows a second (0: as fast as they come)\n"
    "  --await N     publish nothing before N readers follow (0)\n"
    "  --exit        end when all rows are published and all readers have read them\n"
    "  --level N     print the library's messages up to this level, -1 for none (0)\n"
    "  --help        this text\n"
    "\n"
    "Environment: SHMEM_ROOT is the directory of all tables (/var/shmem/zorbes).\n"
    "Exit codes: 0 done, 1 some rows were skipped, 2 wrong usage, 3 there is another\n"
    "writer, 4 any other failure.\n";

struct Options {
  std::string name;
  size_t slots = 1024;
  size_t logEntries = 0;
  double rate = 0;
  size_t awaitReaders = 0;
  bool exitAtEnd = false;
  int level = 0;
};

Zorbe::Table::Options tableOptions(const Options& options, Brask::Platform::DebugHandler& log) {
  Zorbe::Table::Options result;
  result.keyName = "symbol";
  result.records = options.slots;
  result.logEntries = options.logEntries;
  result.log = &log;
  return result;
}

/// Awaits the readers, publishes the rows, awaits that they are read.
class Program {
 public:
  Program(const Options& options, const Signals& signals)
      : options_(options),
        signals_(signals),
        log_(std::cerr, options.level, {200, 50}),
        table_(options.name, tableOptions(options, log_)) {}

  int run() {
    const Zorbe::Table::Info info = look().info();
    std::cout << "ready incarnation=" << info.incarnation << " sequence=" << info.published
              << std::endl;
    await([&] { return options_.awaitReaders == 0 || countReaders() >= options_.awaitReaders; });
    publishRows();
    await([&] { return countReaders(look().info().published) == 0; });
    if (!ended_) std::cout << "read readers=" << countReaders() << std::endl;
    while (!ended_ && !options_.exitAtEnd) handle(signals_.take(-1));
    printState();
    return skipped_ == 0 ? kOk : kBadRows;
  }

 private:
  void publishRows() {
    Feed feed(STDIN_FILENO, options_.rate);
    while (!ended_ && !feed.hasEnded()) {
      while (feed.await(signals_.fd())) {
        const std::string line = feed.next();
        put(line, feed.number());
        if (!feed.isReady()) table_.publish();  // before it waits for the next row
      }
      handle(signals_.take(0));
    }
    table_.publish();
    if (!ended_) std::cout << "fed rows=" << rows_ << " skipped=" << skipped_ << std::endl;
  }

  void put(const std::string& line, uint64_t number) {
    if (number == 1 && line == "symbol,price,size") return;
    try {
      const Row row = parseRow(line);
      table_.put(row.symbol.view(), row.quote);
      ++rows_;
    } catch (const std::exception& problem) {  // or there is no room
      ++skipped_;
      std::cerr << "quotes-writer: line " << number << ": " << problem.what() << std::endl;
    }
  }

  // The table says ten times a second who reads it.
  void await(const std::function<bool()>& condition) {
    constexpr int kLookMilliseconds = 50;
    while (!ended_ && !condition()) handle(signals_.take(kLookMilliseconds));
  }

  void handle(int signal) {
    if (signal == SIGUSR1) printState();
    ended_ |= signal == SIGINT || signal == SIGTERM;
  }

  /// The table as readers see it.
  Reader look() { return Reader(options_.name, tableOptions(options_, silence_)); }

  /// Those that have reported, but less than that; programs that only look never report.
  size_t countReaders(uint64_t below = UINT64_MAX) {
    const auto status = look().status();
    if (!status) return 0;
    const auto counts = [&](const Zorbe::Table::Peer& peer) {
      return peer.state != Zorbe::Table::PeerState::watcher && peer.reported < below;
    };
    return static_cast<size_t>(std::count_if(status->peers.begin(), status->peers.end(), counts));
  }

  void printState() {
    Digest digest;
    for (const auto& [symbol, quote] : table_.scan()) digest.add(symbol, quote);
    const Zorbe::Table::Info info = look().info();
    std::cout << "writer incarnation=" << info.incarnation << " sequence=" << info.published
              << " digest=" << digest.text() << " symbols=" << table_.size() << " rows=" << rows_
              << " skipped=" << skipped_ << std::endl;
  }

  Options options_;
  const Signals& signals_;
  Brask::Linux::StreamDebugHandler log_;
  Brask::Linux::StreamDebugHandler silence_{std::cerr, -1};
  Writer table_;
  uint64_t rows_ = 0;
  uint64_t skipped_ = 0;
  bool ended_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  constexpr uint64_t kMost = 1 << 24;
  const auto number = [](const char* option, uint64_t least, uint64_t most, auto& into) {
    return [=, &into](const std::string& value) {
      into = static_cast<std::decay_t<decltype(into)>>(parseNumber(option, value, least, most));
    };
  };
  const std::vector<Argument> arguments = {
      {"slots", true, number("--slots", 1, kMost, options.slots)},
      {"log", true, number("--log", 0, kMost, options.logEntries)},
      {"rate", true, number("--rate", 0, 1000000000, options.rate)},
      {"await", true, number("--await", 0, 100000, options.awaitReaders)},
      {"exit", false, [&](const std::string&) { options.exitAtEnd = true; }},
      {"level", true, [&](const std::string& value) { options.level = parseLevel(value); }}};
  return runProgram(argc, argv, kUsageText, arguments, [&](const std::string& name) {
    options.name = name;
    const Signals signals;
    return Program(options, signals).run();
  });
}
