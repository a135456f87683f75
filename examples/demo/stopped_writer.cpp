// SPDX-License-Identifier: MIT
#include <time.h>
#include <zorbe/table.h>

#include <memory>
#include <string>
#include <vector>

#include "acts.h"
#include "role.h"

namespace Demo {

namespace {

constexpr uint64_t kRecords = 1000;
constexpr unsigned kStops = 100;
constexpr uint64_t kReadsPerStop = 1000;  // of each reader
constexpr double kDeadline = 20;
constexpr const char* kTable = "stopped";

// Does nothing but put.
void write(Board& board) {
  Zorbe::Table::Writer<Quotes::Symbol, Quotes::Quote> table(kTable);
  for (uint64_t i = 0; !board.isOver; ++i) {
    board.isPutting = true;
    table.put(symbolOf(i % kRecords), quoteOf(i));
    board.isPutting = false;
    if (i < kRecords) board.written = i + 1;
  }
}

void read(Board& board, unsigned index) {
  const Zorbe::Table::Reader<Quotes::Symbol, Quotes::Quote> table(kTable);
  Board::Reader& self = board.readers[index];
  for (Random random(index); !board.isOver;) {
    const auto quote = table.get(symbolOf(random.below(kRecords)));
    if (!quote || !isWhole(*quote)) ++self.wrong;
    ++self.reads;
  }
}

// Up to two milliseconds, so that the writer is met anywhere.
void pause(Random& random) {
  const timespec time{0, static_cast<long>(random.below(2'000'000))};
  static_cast<void>(::nanosleep(&time, nullptr));
}

bool areAllReading(const Board& board, const std::vector<uint64_t>& before) {
  for (unsigned i = 0; i < kReaders; ++i) {
    if (board.readers[i].reads < before[i] + kReadsPerStop) return false;
  }
  return true;
}

}  // namespace

bool playStoppedWriter(const Say& say) {
  Board& board = makeBoard();
  const Role writer([&] { write(board); });
  if (!await(kDeadline, [&] { return board.written == kRecords; })) return false;
  std::vector<std::unique_ptr<Role>> readers;
  for (unsigned i = 0; i < kReaders; ++i) {
    readers.push_back(std::make_unique<Role>([&, i] { read(board, i); }));
  }
  unsigned readOn = 0;
  unsigned inside = 0;
  Random random(1);
  for (unsigned stop = 0; stop < kStops; ++stop) {
    pause(random);
    writer.stop();
    inside += board.isPutting ? 1 : 0;
    std::vector<uint64_t> before;
    for (const Board::Reader& reader : board.readers) before.push_back(reader.reads);
    readOn += await(kDeadline, [&] { return areAllReading(board, before); }) ? 1 : 0;
    writer.resume();
  }
  board.isOver = true;
  const uint64_t wrong = board.sum(&Board::Reader::wrong);
  say("a writer was stopped " + std::to_string(kStops) + " times, " + std::to_string(inside) +
      " of them inside put()");
  say("while it stood still, each of " + std::to_string(kReaders) + " readers read " +
      std::to_string(kReadsPerStop) + " records, " + std::to_string(readOn) + " times of " +
      std::to_string(kStops));
  say(std::to_string(board.sum(&Board::Reader::reads)) + " reads in all, " + std::to_string(wrong) +
      " of them missing or torn");
  return readOn == kStops && inside >= kStops / 4 && wrong == 0;
}

}  // namespace Demo
