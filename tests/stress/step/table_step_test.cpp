// SPDX-License-Identifier: MIT
//
// A writer that is stopped, or killed, at every instruction that stores to the table.
// ZORBE_STEP=full kills takeovers at every store of every interrupted operation.
#include "stress/step/table_observer.h"

#include <cstdlib>
#include <cstring>

namespace Zorbe::Test {
namespace {

TableScript puts(uint64_t from, uint64_t to, uint64_t number) {
  TableScript script;
  for (uint64_t key = from; key <= to; ++key) script.push_back({'p', key, number + key});
  return script;
}

TableScript operator+(TableScript first, const TableScript& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

constexpr TableChange kPublish{'!', 0, 0};

// A full table, of which a key was erased so long ago that its slot is free.
TableScript fullWithAFreeSlot() {
  return puts(1, 16, 100) + TableScript{{'e', 5, 0}} + puts(1, 4, 200);
}

std::vector<TableOperation> operations() {
  return {
      {"Update", 16, 0, puts(1, 3, 100), {{'p', 2, 200}, {'p', 2, 300}, kPublish}, ""},
      {"Insert", 16, 0, puts(1, 3, 100), {{'p', 4, 200}, kPublish}, ""},
      {"EraseAndRevive", 16, 0, puts(1, 3, 100), {{'e', 2, 0}, {'p', 2, 200}, kPublish}, ""},
      {"PublishForTheLog", 16, 4, puts(1, 3, 100), puts(1, 3, 200) + TableScript{kPublish}, ""},
      {"ReuseOfASlot", 16, 4, fullWithAFreeSlot(), {{'p', 17, 300}, kPublish}, ""},
      {"ReturnToAnotherSlot",
       16,
       4,
       fullWithAFreeSlot() + TableScript{{'p', 17, 300}, {'e', 1, 0}} + puts(2, 4, 300),
       {{'p', 5, 400}, kPublish},
       ""},
      {"Growth", 8, 0, puts(1, 8, 100), {{'p', 9, 200}, kPublish}, "capacity "},
      {"RebuildOfTheIndex",
       8,
       0,
       puts(1, 14, 100) + TableScript{{'e', 2, 0}},
       {{'p', 15, 200}, {'p', 2, 300}, kPublish},
       "index "},
      {"GrowthOfTheLog", 200, 0, puts(1, 200, 1000), {{'p', 201, 2000}, kPublish}, "capacity log "},
  };
}

bool isFull() {
  const char* form = std::getenv("ZORBE_STEP");
  return form != nullptr && std::strcmp(form, "full") == 0;
}

class TableStep : public TableSteps, public ::testing::WithParamInterface<TableOperation> {
 public:
  static void TearDownTestSuite() {
    std::cout << stops_ << " stores of writers at which readers looked, " << kills_
              << " at which they were killed, " << takeoverKills_ << " of takeovers\n";
  }

 protected:
  static size_t stops_;
  static size_t kills_;
  static size_t takeoverKills_;
};
size_t TableStep::stops_ = 0;
size_t TableStep::kills_ = 0;
size_t TableStep::takeoverKills_ = 0;

INSTANTIATE_TEST_SUITE_P(Each, TableStep, ::testing::ValuesIn(operations()),
                         [](const auto& operation) { return operation.param.name; });

TEST_P(TableStep, AReaderIsRightAtEveryStore) {
  useDirectory("stopped");
  const auto writer = startWriter(GetParam());
  const auto files = watchFiles();
  TableObserver observer(*this);
  size_t stores = 0;
  while (stepToStore(*writer, *files)) {
    ++stores;
    observer.look();
    observer.lookAfresh();
    observer.follow();
    if (HasFailure()) FAIL() << "at store " << stores;
  }
  observer.look();
  observer.expectFollowed();
  EXPECT_GT(stores, 10u);
  EXPECT_EQ(observer.grown(), GetParam().grows);
  // A key that has no record yet, or is being stored, is looked up by the library.
  EXPECT_GT(observer.percentWithoutACall(), 50u);
  stops_ += stores;
}

TEST_P(TableStep, TheNextWriterContinuesFromEveryStore) {
  for (size_t store = 1;; ++store) {
    useDirectory("killed");
    if (!killAtStore(GetParam(), store)) break;
    ++kills_;
    takeOverAndCheck();
    if (HasFailure()) FAIL() << "killed at store " << store;
  }
}

// The takeover is killed in the same way: what it leaves is copied at each of its stores.
TEST_P(TableStep, ATakeoverIsContinuedFromEveryStore) {
  for (size_t store = 1;; store += isFull() ? 1 : 6) {
    useDirectory("killed");
    if (!killAtStore(GetParam(), store)) break;
    const std::string directory = options.place.directory;
    TableObserver observer(*this);
    const auto takeover = startTakeover();
    const auto files = watchFiles();
    for (size_t stores = 1; stepToStore(*takeover, *files); ++stores) {
      ++takeoverKills_;
      observer.look();
      useCopy("copied");
      takeOverAndCheck();
      options.place.directory = directory;
      if (HasFailure()) FAIL() << "killed at store " << store << ", at the takeover's " << stores;
    }
    observer.look();
  }
}

// A table that is being made is there as a whole or not at all, and is made by the next writer.
TEST_F(TableSteps, ATableIsMadeAfterAKillAtEveryStore) {
  useDirectory("made");
  const std::string directory = options.place.directory;
  expectStates({"", 0, 0, {}, {}, ""});
  const auto maker = startTakeover();
  const auto files = watchFiles();
  size_t stores = 0;
  while (stepToStore(*maker, *files)) {
    ++stores;
    const auto reader = openReader();
    EXPECT_FALSE(reader != nullptr && get(*reader, 1).has_value());
    useCopy("copied");
    const auto table = openWriter();
    put(*table, 1, 100);
    EXPECT_EQ(get(*openReader(), 1), 100u);
    options.place.directory = directory;
    if (HasFailure()) FAIL() << "at store " << stores;
  }
  EXPECT_GT(stores, 2u);  // three names
}

}  // namespace
}  // namespace Zorbe::Test
