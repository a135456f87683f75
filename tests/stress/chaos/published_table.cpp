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

PublishedTable::PublishedTable(std::unique_ptr<TableOfWriter> table, SharedState& shared,
                               ProcessState& state, Flaw flaw)
    : table_(std::move(table)), shared_(shared), flaw_(flaw) {
  if (flaw_ == Flaw::kForgetsRecords) table_->erase(kMark);
  takeOver(state);
}

// A change that was begun and not finished may be there or not: from now on it is settled. When
// the directory was removed, and the writer was killed that had the records in memory, what is
// there counts.
void PublishedTable::takeOver(ProcessState& state) {
  for (Key key = 0; key < kKeys; ++key) {
    const std::optional<Record> record = table_->get(key);
    const uint64_t number = record ? record->number : 0;
    const uint64_t begun = shared_.begun[key];
    if (!KeyState::shows(shared_.finished[key], number)) {
      if (KeyState::shows(begun, number)) {
        shared_.finished[key] = begun;
      } else if (shared_.removed) {
        shared_.finished[key] = KeyState::put(number);
      } else {
        ++state.lost;
      }
    }
    shared_.begun[key] = shared_.finished[key].load();
  }
  ++state.takeovers;
}

void PublishedTable::publish(unsigned count) {
  for (; count > 1; --count) {
    const uint64_t drawn = mix(count, shared_.changes);
    change(1 + static_cast<Key>(drawn % (kKeys - 1)), drawn / kKeys % kChangesPerErasure == 0);
  }
  change(kMark, false);
  table_->publish();
}

void PublishedTable::change(Key key, bool erases) {
  const uint64_t number = ++shared_.changes;
  const uint64_t state = erases ? KeyState::erased(number) : KeyState::put(number);
  shared_.begun[key] = state;
  if (erases) {
    table_->erase(key);
  } else {
    Record record = Record::of(key, number);
    if (flaw_ == Flaw::kTearsRecords) ++record.echoes[1];
    table_->put(key, record);
  }
  shared_.finished[key] = state;
}

}  // namespace Zorbe::Test::Chaos
