// SPDX-License-Identifier: MIT
#include "stress/step/table_steps.h"

#include <sys/mman.h>

#include <algorithm>
#include <filesystem>

namespace Zorbe::Test {

using Table::TableReader;
using Table::TableWriter;

namespace {

void* sharedPage() {
  return ::mmap(nullptr, sizeof(std::atomic<size_t>), PROT_READ | PROT_WRITE,
                MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

void applyTo(Records& records, const TableChange& change) {
  if (change.kind == 'p') records[change.key] = change.number;
  if (change.kind == 'e') records.erase(change.key);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const TableOperation& operation) {
  return out << operation.name;
}

TableSteps::TableSteps() : progress_(*new (sharedPage()) std::atomic<size_t>(0)) {}

TableSteps::~TableSteps() {
  EXPECT_EQ(::munmap(&progress_, sizeof progress_), 0);
}

void TableSteps::SetUp() {
  TableTest::SetUp();
  if (!SteppedProcess::isPossible()) GTEST_SKIP() << "a process may not trace its children here";
}

void TableSteps::useDirectory(const std::string& name) {
  options.place.directory = inRoot(name);
  std::filesystem::remove_all(options.place.directory);
  ASSERT_EQ(::mkdir(options.place.directory.c_str(), 0755), 0);
  progress_.store(0);
}

void TableSteps::useCopy(const std::string& name) {
  const std::string copy = inRoot(name);
  std::filesystem::remove_all(copy);
  std::filesystem::copy(options.place.directory, copy);
  options.place.directory = copy;
}

void TableSteps::apply(TableWriter& table, const TableScript& script) {
  for (const TableChange& change : script) {
    switch (change.kind) {
      case 'p':
        put(table, change.key, change.number);
        break;
      case 'e':
        static_cast<void>(erase(table, change.key));
        break;
      default:
        static_cast<void>(table.publish());
    }
    progress_.fetch_add(1);
  }
}

void TableSteps::expectStates(const TableOperation& operation) {
  Records records;
  for (const TableChange& change : operation.before) applyTo(records, change);
  states_.assign(1, records);
  for (const TableChange& change : operation.changes) {
    applyTo(records, change);
    states_.push_back(records);
  }
}

const Records& TableSteps::state(size_t changes) const {
  return states_[std::min(changes, states_.size() - 1)];
}

// All that the table ever holds.
Records TableSteps::allKeys() const {
  Records keys;
  for (const Records& records : states_) keys.insert(records.begin(), records.end());
  return keys;
}

std::unique_ptr<SteppedProcess> TableSteps::startWriter(const TableOperation& operation) {
  options.records = operation.records;
  options.logEntries = operation.logEntries;
  expectStates(operation);
  auto table = std::make_shared<std::unique_ptr<TableWriter>>();
  return std::make_unique<SteppedProcess>(
      [this, table, &operation] {
        *table = openWriter();
        apply(**table, operation.before);
        progress_.store(0);
      },
      [this, table, &operation] { apply(**table, operation.changes); });
}

std::unique_ptr<SteppedProcess> TableSteps::startTakeover() {
  return std::make_unique<SteppedProcess>([] {},
                                          [this] { static_cast<void>(openWriter().release()); });
}

std::unique_ptr<WatchedFiles> TableSteps::watchFiles() const {
  return std::make_unique<WatchedFiles>(
      options.place.directory,
      std::vector<std::string>{"slots", "buckets", "conquer.1", "conquer.2"});
}

bool TableSteps::stepToStore(SteppedProcess& process, WatchedFiles& files) {
  while (process.step()) {
    if (files.haveChanged()) return true;
  }
  return false;
}

bool TableSteps::killAtStore(const TableOperation& operation, size_t store) {
  const auto writer = startWriter(operation);
  const auto files = watchFiles();
  for (size_t i = 0; i < store; ++i) {
    if (!stepToStore(*writer, *files)) return false;
  }
  writer->kill();
  return true;
}

Records TableSteps::readAll(TableWriter& table, const Records& keys) {
  Records found;
  for (const auto& [key, number] : keys) {
    if (const auto value = get(table, key)) found[key] = *value;
  }
  return found;
}

void TableSteps::takeOverAndCheck() {
  const auto orphan = openReader();
  ASSERT_NE(orphan, nullptr);
  Copy copy(*orphan);
  copy.drain();
  const auto table = openWriter();
  ASSERT_EQ(table->start(), TableWriter::Start::kContinued) << table->whyReplaced();
  const Records found = readAll(*table, allKeys());
  ASSERT_TRUE(found == state(finished()) || found == state(finished() + 1));
  ASSERT_EQ(table->size(), found.size());
  copy.drain();
  EXPECT_EQ(Records(copy.records.begin(), copy.records.end()), found);
  EXPECT_EQ(copy.resets, 1u);
  EXPECT_EQ(orphan->published(), table->appended());
  checkSlots();
  checkGoesOn(*table);
  checkSlots();
}

// Every key has one slot, live or erased.
void TableSteps::checkSlots() {
  const auto reader = openReader();
  ASSERT_NE(reader, nullptr);
  std::map<uint64_t, uint32_t> slotOf;
  for (uint32_t slot = 0; slot < reader->capacity(); ++slot) {
    uint64_t key = 0;
    Value value;
    Table::RecordOut out{&key, &value, kValueBytes};
    ASSERT_TRUE(reader->readSlot(slot, out));
    if (out.state == Table::kFree) continue;
    ASSERT_TRUE(slotOf.emplace(key, slot).second) << "key " << key << " has two slots";
    EXPECT_TRUE(out.state != Table::kLive || value.isWhole()) << "key " << key;
  }
}

void TableSteps::checkGoesOn(TableWriter& table) {
  const auto reader = openReader();
  ASSERT_NE(reader, nullptr);
  Copy copy(*reader);
  copy.drain();
  Records expected;
  for (auto [key, number] : allKeys()) {
    expected[key] = number + 5'000'000;
    put(table, key, expected[key]);
  }
  constexpr uint64_t kNewKey = 777'777;
  put(table, kNewKey, 1);
  expected[kNewKey] = 1;
  ASSERT_TRUE(erase(table, expected.begin()->first));
  expected.erase(expected.begin());
  static_cast<void>(table.publish());
  copy.drain();
  EXPECT_EQ(Records(copy.records.begin(), copy.records.end()), expected);
  for (const auto& [key, number] : expected) EXPECT_EQ(get(*reader, key), number);
}

}  // namespace Zorbe::Test
