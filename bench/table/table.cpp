// SPDX-License-Identifier: MIT
//
// What one process's get, read and put cost, by the number of records, beside what one would use
// instead; and the memory of a record.
#include <sys/stat.h>
#include <zorbe/table.h>

#include <filesystem>

#include "harness/processes.h"
#include "harness/program.h"
#include "table/goals.h"
#include "table/handles.h"
#include "table/store.h"

namespace Bench {

namespace {

struct Size {
  uint64_t records;
  const char* name;
};

class Sized {
 public:
  Sized(Results& results, const Size& size)
      : results_(results),
        size_(size),
        keys_(size.records),
        count_(static_cast<size_t>(results.size(100'000, 50'000))) {
    stores_ = makeSharedStores(directory_.path(), size.records);
    stores_.push_back(makeFloor(size.records));
    stores_.push_back(makeMap(size.records));
    for (const auto& store : stores_) sources_.push_back(store->open());
  }

  void measure() {
    measureGet();
    measureRead();
    measurePut();
    measureMemory();
  }

 private:
  void measureGet() {
    std::vector<Subject> subjects;
    for (size_t each = 0; each < stores_.size(); ++each) {
      Source* const source = sources_[each].get();
      subjects.push_back({stores_[each]->name(), [this, source] {
                            const uint64_t* const keys = keys_.next(count_);
                            return timeParts(count_, [&](size_t first, size_t length) {
                              source->getAll(keys + first, length);
                            });
                          }});
    }
    addAgainstTable("table-get", compare(subjects, blocks()),
                    [this](const std::string& name) { return getGoal(name, size_.records); });
  }

  void measureRead() {
    Handles handles(directory_.path(), size_.records);
    const auto copy = [&](size_t, size_t length) { handles.copyAll(length); };
    const auto read = [&](size_t, size_t length) { handles.readAll(length); };
    const std::vector<Subject> subjects = {{"plain copy", [&] { return timeParts(count_, copy); }},
                                           {"libZorbe", [&] { return timeParts(count_, read); }}};
    results_.addMedians("table-read", size_.name, "ns", compare(subjects, blocks()), "<= 1.15");
  }

  void measurePut() {
    std::vector<Subject> subjects;
    for (const auto& store : stores_) {
      if (!store->put(keyOf(0), recordOf(0))) continue;
      Store* const each = store.get();
      subjects.push_back({store->name(), [this, each] {
                            const uint64_t* const keys = keys_.next(count_);
                            return timeParts(count_, [&](size_t first, size_t length) {
                              for (size_t i = first; i < first + length; ++i) {
                                each->put(keys[i], recordOf(i));
                              }
                            });
                          }});
    }
    addAgainstTable("table-put", compare(subjects, blocks()), putGoal);
  }

  void measureMemory() {
    double bytes = 0;
    for (const auto& file : std::filesystem::directory_iterator(directory_.path() + "/bench")) {
      struct stat status {};
      check(::stat(file.path().c_str(), &status), "stat()");
      if (S_ISREG(status.st_mode)) bytes += static_cast<double>(status.st_blocks) * 512;
    }
    const double each = bytes / static_cast<double>(size_.records);
    results_.add({"table-memory",
                  "libZorbe",
                  size_.name,
                  "bytes a record",
                  {each, each, each},
                  "",
                  {},
                  size_.records > 1000 ? memoryGoal() : ""});
  }

  template <class GoalOf>
  void addAgainstTable(const char* group, const std::vector<Outcome>& outcomes, GoalOf goalOf) {
    for (const Outcome& outcome : outcomes) {
      const bool isTable = &outcome == &outcomes.front();
      results_.add({group, outcome.name, size_.name, "ns", outcome.median,
                    isTable ? "" : outcomes.front().name, outcome.medianRatio,
                    isTable ? "" : goalOf(outcome.name)});
    }
  }

  int blocks() const { return results_.size(21, 7); }

  Results& results_;
  Size size_;
  KeySource keys_;
  size_t count_;
  ScratchDirectory directory_;
  Stores stores_;
  std::vector<std::unique_ptr<Source>> sources_;
};

void run(Results& results) {
  pinTo(0);
  std::vector<Size> sizes = {{1000, "1 K records"}, {128'000, "128 K records"}};
  if (!results.quick()) sizes.push_back({4'000'000, "4 M records"});
  for (const Size& size : sizes) {
    runApart([&] { Sized(results, size).measure(); });
  }
  if (!results.quick()) runApart([&] { measureMapping(results); });
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
