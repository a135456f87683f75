// SPDX-License-Identifier: MIT
//
// Writers that are killed at an instruction of the scheduler's choice. The next one finds every
// put that was finished, and nothing torn.
#include "support/table_fixture.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <sched.h>
#include <atomic>
#include <csignal>
#include <random>

namespace Zorbe::Test {
namespace {

constexpr uint64_t kKeys = 64;

// What the writer says about itself, in memory that outlives it.
struct Journal {
  std::atomic<uint64_t> begun;     // puts
  std::atomic<uint64_t> finished;  // puts
};

class TableKill : public TableTest {
 protected:
  TableKill()
      : journal_(*static_cast<Journal*>(::mmap(nullptr, sizeof(Journal), PROT_READ | PROT_WRITE,
                                               MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
    options.records = 8;
    options.logEntries = 32;
  }
  ~TableKill() override { ::munmap(&journal_, sizeof journal_); }

  static uint64_t keyOf(uint64_t operation) { return operation * 7 % kKeys; }
  static bool isErase(uint64_t operation) { return operation % 5 == 4; }

  // Operation n erases or puts n under a key that follows from n.
  [[noreturn]] void writeForEver() {
    const auto table = openWriter();
    for (uint64_t operation = journal_.finished.load() + 1;; ++operation) {
      journal_.begun.store(operation);
      if (isErase(operation)) {
        erase(*table, keyOf(operation));
      } else {
        put(*table, keyOf(operation), operation);
      }
      journal_.finished.store(operation);
      if (operation % 3 == 0) table->publish();
    }
  }

  // The last operation up to `operation` on a key: what the table has to hold.
  static std::optional<uint64_t> expected(uint64_t key, uint64_t operation) {
    for (; operation > 0; --operation) {
      if (keyOf(operation) != key) continue;
      if (isErase(operation)) return std::nullopt;
      return operation;
    }
    return std::nullopt;
  }

  template <class Source>
  void check(Source& source) {
    const uint64_t finished = journal_.finished.load();
    const uint64_t begun = journal_.begun.load();
    for (uint64_t key = 0; key < kKeys; ++key) {
      const std::optional<uint64_t> found = get(source, key);
      if (found == expected(key, finished)) continue;
      ASSERT_TRUE(key == keyOf(begun) && found == expected(key, begun)) << "key " << key;
    }
  }

  Journal& journal_;
};

TEST_F(TableKill, NoFinishedPutIsLostAndNoReaderHangs) {
  std::mt19937_64 random(3);
  for (unsigned round = 0; round < 150; ++round) {
    const uint64_t goal = journal_.finished.load() + random() % 3000;
    const pid_t writer = ::fork();
    ASSERT_GE(writer, 0);
    if (writer == 0) writeForEver();
    while (journal_.finished.load() <= goal) ::sched_yield();
    ASSERT_EQ(::kill(writer, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(writer, &status, 0), writer);
    ASSERT_TRUE(WIFSIGNALED(status));
    const auto orphan = openReader();
    ASSERT_NE(orphan, nullptr);
    check(*orphan);
    const auto table = openWriter();
    ASSERT_EQ(table->start(), Table::TableWriter::Start::kContinued);
    check(*table);
    check(*orphan);
    Copy copy(*orphan);
    copy.drain();
    ASSERT_EQ(copy.records.size(), table->size());
    journal_.finished.store(journal_.begun.load());  // finished or undone: repeated by the next
    const uint64_t last = journal_.begun.load();
    if (isErase(last)) {
      erase(*table, keyOf(last));
    } else {
      put(*table, keyOf(last), last);
    }
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace Zorbe::Test
