// SPDX-License-Identifier: MIT
#include <zorbe/table.h>

#include <memory>
#include <string>
#include <vector>

#include "acts.h"
#include "clock.h"
#include "role.h"

namespace Demo {

namespace {

constexpr uint64_t kRecordsAtFirst = 1000;
constexpr uint64_t kRecords = 1'000'000;
constexpr uint64_t kBatch = 1000;
constexpr double kDeadline = 100;
constexpr const char* kTable = "growing";

using Reader = Zorbe::Table::Reader<Quotes::Symbol, Quotes::Quote>;

// Waits for the readers before it grows.
void write(Board& board) {
  Zorbe::Table::Options options;
  options.records = kRecordsAtFirst;
  Zorbe::Table::Writer<Quotes::Symbol, Quotes::Quote> table(kTable, options);
  for (uint64_t i = 0; i < kRecords; ++i) {
    table.put(symbolOf(i), quoteOf(i));
    if ((i + 1) % kBatch != 0) continue;
    table.publish();
    board.written = i + 1;
    if (i + 1 != kRecordsAtFirst) continue;
    await(kDeadline, [&] { return board.least(&Board::Reader::followed) == kRecordsAtFirst; });
  }
  await(kDeadline, [&] { return board.isOver.load(); });
}

/// Which records next() has delivered.
class Received {
 public:
  explicit Received(Board::Reader& self) : self_(self), seen_(kRecords) {}

  void follow(Reader& table) {
    constexpr unsigned kMostChanges = 4096;
    for (unsigned i = 0; i < kMostChanges; ++i) {
      const auto change = table.next();
      if (!change) return;
      if (change->kind == Zorbe::Table::Kind::reset) clear();
      if (change->kind == Zorbe::Table::Kind::put) note(change->value);
    }
  }

 private:
  void clear() {
    seen_.assign(kRecords, false);
    self_.followed = 0;
  }
  void note(const Quotes::Quote& quote) {
    const auto number = static_cast<size_t>(quote.price);
    if (!isWhole(quote) || number >= kRecords) {
      ++self_.wrong;
    } else if (!seen_[number]) {
      seen_[number] = true;
      ++self_.followed;
    }
  }

  Board::Reader& self_;
  std::vector<bool> seen_;
};

// Each record that the writer has said to be there has to be found.
void read(Board& board, unsigned index) {
  constexpr unsigned kReadsPerTurn = 256;
  Reader table(kTable);
  Board::Reader& self = board.readers[index];
  Received received(self);
  for (Random random(index); !board.isOver;) {
    for (unsigned i = 0; i < kReadsPerTurn; ++i) {
      const uint64_t number = random.below(board.written);
      const auto quote = table.get(symbolOf(number));
      if (!quote || quote->price != quoteOf(number).price || !isWhole(*quote)) ++self.wrong;
      ++self.reads;
    }
    received.follow(table);
  }
}

}  // namespace

bool playGrowth(const Say& say) {
  Board& board = makeBoard();
  const Role writer([&] { write(board); });
  if (!await(kDeadline, [&] { return board.written >= kRecordsAtFirst; })) return false;
  std::vector<std::unique_ptr<Role>> readers;
  for (unsigned i = 0; i < kReaders; ++i) {
    readers.push_back(std::make_unique<Role>([&, i] { read(board, i); }));
  }
  const bool isComplete = await(kDeadline, [&] {
    return !writer.isRunning() || board.least(&Board::Reader::followed) == kRecords;
  });
  board.isOver = true;
  const uint64_t wrong = board.sum(&Board::Reader::wrong);
  const uint64_t followed = board.least(&Board::Reader::followed);
  say("a table has grown from " + std::to_string(kRecordsAtFirst) + " to " +
      std::to_string(board.written) + " records");
  say(std::to_string(board.sum(&Board::Reader::reads)) + " reads meanwhile, " +
      std::to_string(wrong) + " of them missing or torn");
  say("each of " + std::to_string(kReaders) + " readers has received " + std::to_string(followed) +
      " records");
  return isComplete && followed == kRecords && wrong == 0;
}

}  // namespace Demo
