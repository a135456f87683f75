// SPDX-License-Identifier: MIT
//
// quotes-writer: becomes the writer of a table and publishes the rows of its standard
// input. See usage() below.
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>

#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>

#include <unistd.h>

#include "cli.h"
#include "feed.h"
#include "quotes_writer.h"

namespace {

using namespace Quotes;

void usage(std::ostream& out) {
  out << "Usage: quotes-writer NAME [options] < FILE\n"
         "\n"
         "Publishes the rows \"symbol,price,size\" of its standard input in the table NAME and\n"
         "wakes the table's readers. Rows that make no sense are told on standard error and\n"
         "skipped. Stays the writer until SIGINT or SIGTERM; SIGUSR1 prints the state.\n"
         "\n"
         "  --slots N     room for N symbols (4096)\n"
         "  --log N       entries of the change log (4096)\n"
         "  --rate N      publish N rows a second (0: as fast as they come)\n"
         "  --await N     publish nothing before N readers are connected (0)\n"
         "  --exit        end when all rows are published and all readers have read them\n"
         "  --level N     print the library's messages up to this level, -1 for none (0)\n"
         "  --help        this text\n"
         "\n"
         "Environment: SHMEM_ROOT is the directory of all tables (/var/shmem/zorbes).\n"
         "Exit codes: 0 done, 1 some rows were skipped, 2 wrong usage, 3 there is another\n"
         "writer, 4 any other failure.\n";
}

struct Options {
  std::string name;
  Shape shape;
  double rate = 0;
  unsigned awaitReaders = 0;
  bool exitAtEnd = false;
  int level = 0;
};

// The table's name; nothing when only the usage is asked for.
std::optional<std::string> parse(int argc, char** argv, Options& options) {
  constexpr uint64_t kMost = 1 << 24;
  return parseCommandLine(
      argc, argv,
      {{"slots", true,
        [&](const std::string& value) {
          options.shape.slots = static_cast<uint32_t>(parseNumber("--slots", value, 1, kMost));
        }},
       {"log", true,
        [&](const std::string& value) {
          options.shape.logEntries = static_cast<uint32_t>(parseNumber("--log", value, 1, kMost));
        }},
       {"rate", true,
        [&](const std::string& value) {
          options.rate = static_cast<double>(parseNumber("--rate", value, 0, 1000000000));
        }},
       {"await", true,
        [&](const std::string& value) {
          options.awaitReaders = static_cast<unsigned>(parseNumber("--await", value, 0, 100000));
        }},
       {"exit", false, [&](const std::string&) { options.exitAtEnd = true; }},
       {"level", true, [&](const std::string& value) { options.level = parseLevel(value); }}});
}

/// Awaits the readers, publishes the rows, awaits that they are read.
class Program : public Brask::Platform::TimeoutHandler {
 public:
  Program(Brask::Platform::DebugHandler& log, Brask::Linux::EventLoop& loop, const Options& options)
      : options_(options),
        loop_(loop),
        writer_(log, Zorbe::RootPath(log, options.name, true), options.shape),
        feed_(
            STDIN_FILENO, options.rate,
            [this](const std::string& line, uint64_t number) { publish(line, number); },
            [this] { fed(); }),
        timer_(Brask::Platform::getTimerControl(this)) {}

  int run(Signals& signals) {
    writer_.open();
    std::cout << "ready fenix=" << writer_.fenix() << " sequence=" << writer_.sequence()
              << std::endl;
    timer_->start(0.0);
    do {
      runLoop(loop_, [this] { writer_.recover(); });
      if (signals.takePrintRequest()) printState();
    } while (!signals.ended() && !done_);
    printState();
    return bad_ == 0 ? kOk : kBadRows;
  }

  // The library tells nobody that a reader has connected for good or fallen asleep, so
  // this program looks every now and then.
  void timeout() override {
    constexpr double kLookSeconds = 0.01;
    if (!fed_ && writer_.reportingReaders() >= options_.awaitReaders) {
      feed_.start();
    } else if (fed_ && writer_.readersHaveRead()) {
      read();
    } else {
      timer_->start(kLookSeconds);
    }
  }

 private:
  void publish(const std::string& line, uint64_t number) {
    if (number == 1 && line == "symbol,price,size") return;
    try {
      writer_.publish(parseRow(line));
      ++rows_;
    } catch (const std::exception& problem) {
      ++bad_;
      std::cerr << "quotes-writer: line " << number << ": " << problem.what() << std::endl;
    }
  }

  void fed() {
    fed_ = true;
    std::cout << "fed rows=" << rows_ << " skipped=" << bad_ << std::endl;
    timer_->start(0.0);
  }

  void read() {
    std::cout << "read readers=" << writer_.reportingReaders() << " sequence=" << writer_.sequence()
              << std::endl;
    if (!options_.exitAtEnd) return;
    done_ = true;
    loop_.stop();
  }

  // In digits, and not with the record's own operator<<, whose form is for machines.
  void printState() {
    const Copy copy = writer_.copy();
    const Zorbe::Writer::Counters& counters = writer_.counters();
    std::cout << "writer fenix=" << writer_.fenix() << " sequence=" << writer_.sequence()
              << " digest=" << std::hex << std::setfill('0') << std::setw(8) << digest(copy)
              << std::dec << " symbols=" << copy.size() << " rows=" << rows_ << " skipped=" << bad_
              << " kicks=" << counters.kicksIssued << " overruns=" << counters.conquerOverruns
              << " connections=" << counters.connectedReaders << std::endl;
  }

  Options options_;
  Brask::Linux::EventLoop& loop_;
  QuotesWriter writer_;
  Feed feed_;
  uint64_t rows_ = 0;
  uint64_t bad_ = 0;
  bool fed_ = false;
  bool done_ = false;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
};

int runWriter(int argc, char** argv) {
  Options options;
  const auto name = parse(argc, argv, options);
  if (!name) {
    usage(std::cout);
    return kOk;
  }
  options.name = *name;
  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler log(std::cerr, options.level, {200, 50});
  Signals signals(loop);
  return Program(log, loop, options).run(signals);
}

}  // namespace

int main(int argc, char** argv) {
  return runProgram("quotes-writer", [&] { return runWriter(argc, argv); });
}
