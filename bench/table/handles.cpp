// SPDX-License-Identifier: MIT
#include "table/handles.h"

#include <cstring>
#include <utility>

#include "harness/processes.h"

namespace Bench {

namespace {

constexpr size_t kHandles = size_t{1} << 20;

Zorbe::Table::Options in(const std::string& directory) {
  Zorbe::Table::Options options;
  options.root = directory;
  return options;
}

}  // namespace

Handles::Handles(const std::string& directory, uint64_t records)
    : reader_("bench", in(directory)), slots_(directory + "/bench", records) {
  for (const uint64_t number : randomNumbers(kHandles, records)) {
    const auto handle = reader_.find(keyOf(number));
    // New records take one slot after another.
    if (!handle || slots_.key(number) != keyOf(number)) failMissing();
    handles_.push_back(*handle);
    values_.push_back(slots_.value(number));
  }
}

size_t Handles::from(size_t count) {
  if (position_ + count > handles_.size()) position_ = 0;
  return std::exchange(position_, position_ + count);
}

void Handles::readAll(size_t count) {
  const Handle* handle = handles_.data() + from(count);
  for (size_t each = 0; each < count; ++each) {
    Record record;
    if (!reader_.read(handle[each], record)) failMissing();
    use(record);
  }
}

void Handles::copyAll(size_t count) {
  const char* const* value = values_.data() + from(count);
  for (size_t each = 0; each < count; ++each) {
    Record record;
    std::memcpy(&record, value[each], sizeof record);
    use(record);
  }
}

void measureMapping(Results& results) {
  constexpr uint64_t kRecords = 4'000'000;
  constexpr int kGets = 100'000;
  ScratchDirectory directory;
  const auto store = makeTable(directory.path(), kRecords);
  KeySource keys(kRecords);
  const auto measure = [&](const char* name, bool populate, bool hugePages) {
    Zorbe::Table::Options options = in(directory.path());
    options.populate = populate;
    options.hugePages = hugePages;
    const double start = nanoseconds();
    const Zorbe::Table::Reader<uint64_t, Record> reader("bench", options);
    const auto gets = [&] {
      const uint64_t* const some = keys.next(kGets);
      return timeTogether(kGets, [&] {
        getEach(some, kGets, [&](uint64_t key) {
          const auto found = reader.get(key);
          if (found) use(*found);
          return found.has_value();
        });
      });
    };
    if (!reader.contains(keyOf(0))) failMissing();
    const double opening = nanoseconds() - start;
    const Spread first = spreadOf(gets());
    for (uint64_t key = 0; key < kRecords; ++key) use(*reader.get(keyOf(key)));
    std::vector<double> later;
    for (int block = 0; block < 15; ++block) later.push_back(gets().front());
    results.add({"table-mapping", name, "opening", "ns", {opening, opening, opening}, "", {}, ""});
    results.add({"table-mapping", name, "first gets", "ns", first, "", {}, ""});
    results.add({"table-mapping", name, "later gets", "ns", spreadOf(later), "", {}, ""});
  };
  measure("neither", false, false);
  measure("populate", true, false);
  measure("hugePages", false, true);
}

}  // namespace Bench
