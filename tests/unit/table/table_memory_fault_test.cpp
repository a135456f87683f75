// SPDX-License-Identifier: MIT
//
// Every system call that the memory of a table makes is made to fail, one after another. The
// operation either succeeds all the same or throws, no descriptor stays open, and the table holds
// what it held before.
#include "support/sanitized.h"
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <zorbe/exceptions.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;

class TableMemoryFaults : public TableTest {
 protected:
  static constexpr uint64_t kRecords = 100;

  void makeTable() {
    for (const char* name : {"slots", "buckets", "conquer.1", "conquer.2"}) {
      static_cast<void>(::unlink(path(name).c_str()));
    }
    const auto table = openWriter();
    fill(*table, kRecords);
    table->publish();
  }

  // Runs `act` with its first call failing, then with its second, ... until it makes no more.
  // What a failing close() leaves behind is no fault of the table's.
  unsigned sweep(int error, const std::function<void()>& act) {
    unsigned failures = 0;
    bool reached = true;
    for (unsigned occurrence = 1; reached && !HasFatalFailure(); ++occurrence) {
      SCOPED_TRACE("call " + std::to_string(occurrence));
      reached = false;
      makeTable();
      Fault::armAny(occurrence,
                    [&](const Fault::InterceptedCall& victim) -> std::optional<Fault::Failure> {
                      reached = true;
                      if (victim.call == "close" || victim.call == "getpid") return std::nullopt;
                      return Fault::Failure{error};
                    });
      if (!succeeds(act)) ++failures;
      Fault::reset();
      checkTable();
    }
    return failures;
  }

  static bool succeeds(const std::function<void()>& act) {
    try {
      act();
      return true;
    } catch (const Error&) {
    } catch (const CorruptionDetectedException&) {
    } catch (const DuplicateWriterException&) {
    }
    return false;
  }

  void checkTable() {
    const auto table = openWriter();
    for (uint64_t key = 0; key < kRecords; ++key) ASSERT_EQ(get(*table, key), key);
  }
};

TEST_F(TableMemoryFaults, TakingOverAndGrowingLoseNothing) {
  for (const int error : {EIO, ENOSPC, ENOMEM}) {
    SCOPED_TRACE(error);
    const unsigned failures = sweep(error, [this] {
      const auto table = openWriter();
      for (uint64_t key = 1000; key < 1200; ++key) put(*table, key, key);
      for (uint64_t key = 1000; key < 1200; ++key) erase(*table, key);
    });
    EXPECT_GT(failures, 5u);
  }
}

TEST_F(TableMemoryFaults, ReadingEitherWorksOrThrows) {
  const unsigned failures = sweep(EMFILE, [this] {
    const auto reader = openReader();
    if (!reader) return;
    Copy copy(*reader);
    copy.drain();
    for (uint64_t key = 0; key < kRecords; ++key) EXPECT_EQ(get(*reader, key), key);
  });
  EXPECT_GT(failures, 3u);
}

TEST_F(TableMemoryFaults, AFullDiskIsReportedAndThePutIsNotMade) {
  const auto table = openWriter();
  fill(*table, 16);
  Fault::arm("posix_fallocate", 1, ENOSPC);
  expectError(ErrorCode::noSpace, "table 't': posix_fallocate() ", [&] { put(*table, 16, 16); });
  EXPECT_EQ(get(*table, 16), std::nullopt);
  EXPECT_EQ(table->size(), 16u);
  put(*table, 16, 16);
  EXPECT_EQ(get(*table, 16), 16u);
}

TEST_F(TableMemoryFaults, ALogThatCannotGrowHoldsUpNobody) {
  const auto table = openWriter();
  fill(*table, 128);
  const uint64_t before = table->log().generation();
  const char* next = before % 2 != 0 ? "conquer.2.new" : "conquer.1.new";
  const auto armed = Fault::arm("posix_fallocate", 1, ENOSPC).onPath(path(next));
  for (uint64_t key = 128; armed.fired() == 0; ++key) put(*table, key, key);
  EXPECT_EQ(table->log().generation(), before);
  EXPECT_NE(::access(path(next).c_str(), F_OK), 0);
}

TEST_F(TableMemoryFaults, TheLimitOfFileSizesIsAnErrorAndNotASignal) {
  const auto table = openWriter();
  fill(*table, 16);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit tight = before;
  tight.rlim_cur = 4096;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  expectError(ErrorCode::noSpace, "ulimit -f", [&] { put(*table, 16, 16); });
  EXPECT_EQ(get(*table, 16), std::nullopt);
  tight.rlim_cur = 1 << 20;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &tight), 0);
  put(*table, 16, 16);
  EXPECT_EQ(get(*table, 16), 16u);
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
}

// The errors by which kernels and file systems say so.
TEST_F(TableMemoryFaults, WithoutUnnamedFilesANamedOneIsFilled) {
  for (const int error : {EOPNOTSUPP, EISDIR, EINVAL, ENOENT}) {
    SCOPED_TRACE(error);
    Fault::arm("open", 1, error).onPath(options.place.directory);
    const auto table = openWriter();
    EXPECT_EQ(table->start(), Table::TableWriter::Start::kCreated);
    EXPECT_NE(::access(path("slots.new").c_str(), F_OK), 0);
    put(*table, 1, 10);
    EXPECT_EQ(get(*openReader(), 1), 10u);
    ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  }
}

TEST_F(TableMemoryFaults, InterruptedCallsAreMadeAgain) {
  Fault::arm("posix_fallocate", 1, EINTR, 2);
  Fault::arm("getrandom", 1, EINTR);
  Fault::armResult("getrandom", 2, 4);  // of eight bytes
  makeTable();
  checkTable();
}

TEST_F(TableMemoryFaults, WithoutRandomNumbersThereIsNoTable) {
  Fault::arm("getrandom", 1, ENOSYS);
  EXPECT_FALSE(succeeds([this] { openWriter(); }));
  makeTable();
}

TEST_F(TableMemoryFaults, AnotherWriterThatComesFirstIsFound) {
  Fault::before("linkat", 1, [this] { makeTable(); });
  const auto table = openWriter();
  EXPECT_EQ(table->start(), Table::TableWriter::Start::kContinued);
  EXPECT_EQ(get(*table, 5), 5u);
}

TEST_F(TableMemoryFaults, LittleAddressSpaceIsEnough) {
  if (kIsSanitized) GTEST_SKIP() << "the sanitizer has an mmap() of its own";
  // The mapping with room to grow is refused, the one of the file is not; growing moves it.
  auto refused = Fault::arm("mmap", 1, ENOMEM);
  const auto table = openWriter();
  EXPECT_EQ(refused.fired(), 1u);
  fill(*table, 2000);
  EXPECT_GT(Fault::calls("mremap"), 0u);
  Fault::arm("mmap", 2, ENOMEM);
  const auto reader = openReader();
  for (uint64_t key = 2000; key < 6000; ++key) put(*table, key, key);
  for (uint64_t key = 0; key < 6000; ++key) ASSERT_EQ(get(*reader, key), key);
}

}  // namespace
}  // namespace Zorbe::Test
