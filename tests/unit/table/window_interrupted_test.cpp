// SPDX-License-Identifier: MIT
//
// The writer changes something while View copies a record: at the first byte that is stored to
// the copy, which lies in a page that may not be written until then.
#include "unit/table/window_fixture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace Zorbe::Test {
namespace {

using Table::Detail::Glance;
using Fitting = Glance<1, kValueBytes>;

/// A page whose first store runs a function.
class InterruptedPage {
 public:
  explicit InterruptedPage(std::function<void()> action) {
    bytes_ = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
    page_ = ::mmap(nullptr, bytes_, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(page_, MAP_FAILED);
    action_ = std::move(action);
    current_ = this;
    struct sigaction handler {};
    handler.sa_handler = [](int) { current_->interrupt(); };
    EXPECT_EQ(::sigaction(SIGSEGV, &handler, &before_), 0);
  }
  ~InterruptedPage() {
    EXPECT_EQ(::sigaction(SIGSEGV, &before_, nullptr), 0);
    EXPECT_EQ(::munmap(page_, bytes_), 0);
  }
  InterruptedPage(const InterruptedPage&) = delete;
  InterruptedPage& operator=(const InterruptedPage&) = delete;

  void* memory() const { return page_; }
  int interrupts() const { return interrupts_; }

 private:
  void interrupt() {
    if (interrupts_++ > 0) ::_exit(1);  // another fault than the expected one
    if (::mprotect(page_, bytes_, PROT_READ | PROT_WRITE) != 0) ::_exit(1);
    action_();
  }

  static inline InterruptedPage* current_ = nullptr;

  std::function<void()> action_;
  struct sigaction before_ {};
  void* page_ = nullptr;
  size_t bytes_ = 0;
  int interrupts_ = 0;
};

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
