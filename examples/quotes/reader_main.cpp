// SPDX-License-Identifier: MIT
//
// quotes-reader: follows a table until a signal ends it. See usage() below.
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>

#include <iomanip>
#include <iostream>
#include <map>
#include <optional>

#include "cli.h"
#include "clock.h"
#include "quotes_follower.h"

namespace {

using namespace Quotes;

void usage(std::ostream& out) {
  out << "Usage: quotes-reader NAME [options]\n"
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
}

struct Options {
  std::string name;
  std::string symbol;
  bool print = false;
  bool events = false;
  double restSeconds = 0;
  int level = -1;
};

// The table's name; nothing when only the usage is asked for.
std::optional<std::string> parse(int argc, char** argv, Options& options) {
  return parseCommandLine(
      argc, argv,
      {{"print", false, [&](const std::string&) { options.print = true; }},
       {"every", true,
        [&](const std::string& value) {
          options.restSeconds =
              static_cast<double>(parseNumber("--every", value, 0, 3600000)) / 1e3;
        }},
       {"events", false, [&](const std::string&) { options.events = true; }},
       {"get", true, [&](const std::string& value) { options.symbol = value; }},
       {"level", true, [&](const std::string& value) { options.level = parseLevel(value); }}});
}

double microseconds(uint64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e3;
}

void printCopy(const Copy& copy) {
  const std::map<std::string, Quote> ordered(copy.begin(), copy.end());
  for (const auto& [symbol, quote] : ordered) std::cout << formatRow(quote) << '\n';
}

// In digits, and not with the record's own operator<<, whose form is for machines. Counters are
// of the whole run; what the follower has applied, and how fast, is of this incarnation.
void printState(const QuotesFollower& follower, bool withCopy) {
  const QuotesReader* reader = follower.reader();
  if (reader == nullptr) {
    std::cout << "reader without a table" << std::endl;
    return;
  }
  const ChangeFollower& followed = reader->followed();
  const Zorbe::Reader::Counters& counters = follower.counters();
  if (withCopy) printCopy(followed.copy());
  std::cout << "reader fenix=" << followed.table().fenix() << " sequence=" << followed.sequence()
            << " digest=" << std::hex << std::setfill('0') << std::setw(8)
            << digest(followed.copy()) << std::dec << " symbols=" << followed.copy().size()
            << " applied=" << followed.applied() << " kicks=" << counters.conquerKicks
            << " passes=" << counters.conquerNotified + counters.conquerYields
            << " rescans=" << counters.conquerRescans << " torn=" << counters.tornRecords
            << " connections=" << counters.conquerConnections << std::fixed << std::setprecision(1)
            << " p50us=" << microseconds(followed.wakeUps().percentile(50))
            << " p99us=" << microseconds(followed.wakeUps().percentile(99)) << std::endl;
}

// Nanoseconds of the clock that all processes of the host share.
void printEvent(const std::string& event) {
  std::cout << "event " << event << " at=" << monotonicNanoseconds() << std::endl;
}

int printOne(Brask::Platform::DebugHandler& log, const Options& options) {
  const std::optional<TableReader> table =
      TableReader::open(Zorbe::RootPath(log, options.name, false));
  const std::optional<Quote> quote = table ? table->find(options.symbol) : std::nullopt;
  if (!quote) {
    std::cerr << "quotes-reader: " << (table ? "no symbol " + options.symbol : "no table")
              << std::endl;
    return 1;
  }
  std::cout << formatRow(*quote) << std::endl;
  return kOk;
}

int follow(Brask::Platform::DebugHandler& log, const Options& options) {
  Brask::Linux::EventLoop loop;
  Signals signals(loop);
  QuotesFollower::Options following{options.restSeconds, {}};
  if (options.events) following.onEvent = printEvent;
  QuotesFollower follower(log, Zorbe::RootPath(log, options.name, true), following);
  std::cout << "following " << options.name << std::endl;
  follower.start();
  do {
    runLoop(loop, [&] { follower.recover(); });
    if (signals.takePrintRequest()) printState(follower, options.print);
  } while (!signals.ended());
  printState(follower, options.print);
  return kOk;
}

int runReader(int argc, char** argv) {
  Options options;
  const auto name = parse(argc, argv, options);
  if (!name) {
    usage(std::cout);
    return kOk;
  }
  options.name = *name;
  Brask::Linux::StreamDebugHandler log(std::cerr, options.level, {200, 50});
  return options.symbol.empty() ? follow(log, options) : printOne(log, options);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram("quotes-reader", [&] { return runReader(argc, argv); });
}
