// SPDX-License-Identifier: MIT
#include "stress/chaos/published_table.h"

#include <utility>

namespace Zorbe::Test::Chaos {
namespace {

// Few from the start: the tables grow, and readers are overrun, again and again.
constexpr size_t kFewRecords = 16;
constexpr unsigned kChangesPerErasure = 5;

// The process looks between two attempts whether it is asked to end.
constexpr double kSecondsForLock = 0.05;

template <class Writer>
class TableOf final : public TableOfWriter {
 public:
  explicit TableOf(const Table::Options& options) : writer_(kTableName, options) {}

  void put(Key key, const Record& record) override { writer_.put(key, record); }
  bool erase(Key key) override { return writer_.erase(key); }
  void publish() override { writer_.publish(); }
  std::optional<Record> get(Key key) const override { return writer_.get(key); }

 private:
  Writer writer_;
};

}  // namespace

std::unique_ptr<TableOfWriter> becomeWriter(ClientContext& context, Kind kind) {
  Table::Options options = context.options();
  options.records = kFewRecords;
  options.waitForLock = kSecondsForLock;
  if (kind == Kind::kOwnLoop) {
    return std::make_unique<TableOf<Table::Writer<Key, Record>>>(options);
  }
  return std::make_unique<TableOf<Table::LoopWriter<Key, Record>>>(options);
}

PublishedTable::PublishedTable(std::unique_ptr<TableOfWriter> table, Board& board, Place& place,
                               Flaw flaw)
    : table_(std::move(table)), board_(board), flaw_(flaw) {
  if (flaw_ == Flaw::kForgetsRecords) table_->erase(kMark);
  takeOver(place);
}

// A change that was begun and not finished may be there or not: from now on it is settled. When
// the directory was removed, and the writer was killed that had the records in memory, what is
// there counts.
void PublishedTable::takeOver(Place& place) {
  for (Key key = 0; key < kKeys; ++key) {
    const std::optional<Record> record = table_->get(key);
    const uint64_t number = record ? record->number : 0;
    const uint64_t begun = board_.begun[key];
    if (!KeyState::shows(board_.finished[key], number)) {
      if (KeyState::shows(begun, number)) {
        board_.finished[key] = begun;
      } else if (board_.removed) {
        board_.finished[key] = KeyState::put(number);
      } else {
        ++place.lost;
      }
    }
    board_.begun[key] = board_.finished[key].load();
  }
  ++place.takeovers;
}

void PublishedTable::publish(unsigned count) {
  for (; count > 1; --count) {
    const uint64_t drawn = mix(count, board_.changes);
    change(1 + static_cast<Key>(drawn % (kKeys - 1)), drawn / kKeys % kChangesPerErasure == 0);
  }
  change(kMark, false);
  table_->publish();
}

void PublishedTable::change(Key key, bool erases) {
  const uint64_t number = ++board_.changes;
  const uint64_t state = erases ? KeyState::erased(number) : KeyState::put(number);
  board_.begun[key] = state;
  if (erases) {
    table_->erase(key);
  } else {
    Record record = Record::of(key, number);
    if (flaw_ == Flaw::kTearsRecords) ++record.echoes[1];
    table_->put(key, record);
  }
  board_.finished[key] = state;
}

}  // namespace Zorbe::Test::Chaos
