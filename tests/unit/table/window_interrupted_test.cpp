// SPDX-License-Identifier: MIT
//
// The writer changes something while View copies a record: at the first byte that is stored to
// the copy, which lies in a page that may not be written until then.
#include "unit/table/interrupted_page.h"
#include "unit/table/window_fixture.h"

namespace Zorbe::Test {
namespace {

using Table::Detail::Glance;
using Fitting = Glance<1, kValueBytes>;

class WindowInterrupted : public WindowTest {
 protected:
  WindowInterrupted() {
    table_ = openWriter();
    put(*table_, kKey, 10);
    mapTable();
    view_.emplace(makeView());
    EXPECT_EQ(get(*view_, kKey), 10u);
  }

  // What find() returns when `action` runs in the middle of it.
  uint64_t findDuring(std::function<void()> action) {
    const InterruptedPage page(std::move(action));
    const uint64_t found = Fitting(*window_).find({kKey}, page.memory());
    EXPECT_EQ(page.interrupts(), 1);
    return found;
  }

  static constexpr uint64_t kKey = 1;
  std::unique_ptr<Table::TableWriter> table_;
  std::optional<TableView> view_;
};

TEST_F(WindowInterrupted, ARecordThatStaysIsReturned) {
  EXPECT_EQ(findDuring([] {}), 0u);
  EXPECT_EQ(findDuring([&] { put(*table_, kKey + 1, 20); }), 0u);
}

TEST_F(WindowInterrupted, AMixtureOfTwoRecordsIsNotReturned) {
  EXPECT_EQ(findDuring([&] { put(*table_, kKey, 11); }), Fitting::kMiss);

  const InterruptedPage page([&] { put(*table_, kKey, 12); });
  EXPECT_FALSE(Fitting(*window_).read(window_->incarnation, 0, {kKey}, page.memory()));
  EXPECT_EQ(get(*view_, kKey), 12u);
}

// The writer takes away the entry first, and then the slot for another key.
TEST_F(WindowInterrupted, ARecordWhoseEntryDisappearsIsNotReturned) {
  const auto hash = Table::Detail::hashOf(&kKey, 1, window_->seed);
  const auto& index = table_->index();
  EXPECT_EQ(findDuring([&] { EXPECT_TRUE(index.memory().entomb(hash, 0)); }), Fitting::kMiss);
}

}  // namespace
}  // namespace Zorbe::Test
