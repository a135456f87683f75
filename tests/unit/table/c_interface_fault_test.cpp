// SPDX-License-Identifier: MIT
//
// The table's interface in C when each of its system calls and allocations fails: the handle is
// there, says what has failed, and can be closed; nothing stays open or allocated.
#include "unit/table/c_table.h"

#include "support/failing_memory.h"

#include "fault/fault.h"

#include <unistd.h>

#include <algorithm>
#include <bitset>
#include <cerrno>
#include <filesystem>
#include <set>

namespace Zorbe::Test {
namespace {

// Codes that were returned. Allocates nothing.
class Codes {
 public:
  void add(int code) { seen_.set(static_cast<size_t>(code + kLowest)); }
  void add(const Codes& others) { seen_ |= others.seen_; }
  bool has(int code) const { return seen_.test(static_cast<size_t>(code + kLowest)); }

  // The failures.
  std::set<int> failures() const {
    std::set<int> found;
    for (int code = -kLowest; code < 0; ++code) {
      if (has(code)) found.insert(code);
    }
    return found;
  }

 private:
  static constexpr int kLowest = 16;
  std::bitset<64> seen_;
};

class CFaults : public CInterface {
 public:
  using Use = Codes (CFaults::*)();

  // All functions, by a program that goes on after every failure.
  Codes useWriter() {
    Codes codes;
    CTable writer;
    codes.add(openWriter(writer, fields_));
    check(writer);
    for (uint32_t key = 1; key < 3; ++key) codes.add(put(writer, key, key));
    codes.add(erase(writer, 1));
    codes.add(zorbe_publish(writer));
    codes.add(useEither(writer));
    return codes;
  }

  // As found.
  Codes continueWriting() {
    Codes codes;
    CTable writer;
    codes.add(zorbe_writer_open(writer.out(), "t", nullptr, 0, &options));
    check(writer);
    codes.add(useEither(writer));
    return codes;
  }

  Codes useReader() {
    Codes codes;
    CTable reader;
    codes.add(openReader(reader));
    check(reader);
    codes.add(std::min(zorbe_fd(reader), 0));
    codes.add(zorbe_refresh(reader));
    codes.add(zorbe_wait(reader, 0));
    zorbe_change change{};
    for (int i = 0; i < 5; ++i) codes.add(zorbe_next(reader, &change));
    codes.add(zorbe_process(reader));
    codes.add(useEither(reader));
    return codes;
  }

  Codes useEither(zorbe_table* table) {
    Codes codes;
    uint64_t cursor = 0;
    zorbe_info info{};
    info.size = sizeof info;
    Record record{};
    codes.add(get(table, 0, record));
    codes.add(zorbe_scan(table, &cursor, nullptr, nullptr));
    codes.add(zorbe_get_info(table, &info));
    static_cast<void>(zorbe_count(table));
    codes.add(zorbe_error(table));
    static_cast<void>(zorbe_fields(table, nullptr));
    check(table);
    return codes;
  }

  static void check(zorbe_table* table) {
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(zorbe_error(table) != 0, *zorbe_error_text(table) != 0);
  }

  void makeTable() {
    const Fault::Bypass bypass;
    std::filesystem::remove_all(inRoot("t"));
    CTable writer;
    ASSERT_EQ(openWriter(writer, fields_), 0);
    EXPECT_EQ(put(writer, 0, 0), 0);
  }

  // Runs `use` with its first, second, ... call failing until it makes no more.
  Codes sweepCalls(int error, Use use) {
    Codes codes;
    bool reached = true;
    for (unsigned nth = 1; reached && !HasFailure(); ++nth) {
      SCOPED_TRACE("call " + std::to_string(nth));
      reached = false;
      makeTable();
      Fault::armAny(nth, [&](const Fault::InterceptedCall& call) -> std::optional<Fault::Failure> {
        reached = true;
        // Neither fails in a way that could be reported; the library leaves its socket open when
        // setsockopt() fails, and when setns() does not return to the caller's namespace.
        const bool isLeftOut = call.call == "close" || call.call == "getpid" ||
                               call.call == "setsockopt" || call.call == "setns";
        if (isLeftOut) return std::nullopt;
        return Fault::Failure{error};
      });
      codes.add((this->*use)());
      Fault::reset();
    }
    return codes;
  }

  // The same with allocations, one of `step`. What the process keeps for its whole life is
  // allocated before.
  Codes sweepAllocations(Memory::Failing failing, unsigned step, Use use) {
    makeTable();
    static_cast<void>((this->*use)());
    Codes codes;
    bool reached = true;
    for (unsigned nth = 1; reached && !HasFailure(); nth += step) {
      SCOPED_TRACE("allocation " + std::to_string(nth));
      makeTable();
      const long before = Memory::blocks();
      Memory::fail(nth, failing);
      codes.add((this->*use)());
      reached = Memory::stopFailing() != 0;
      EXPECT_EQ(Memory::blocks(), before);
    }
    return codes;
  }

  const std::vector<zorbe_field> fields_ = [this] {
    options.value_bytes = sizeof(Record);
    options.records = options.log_entries = 64;
    return recordFields();
  }();
};

TEST_F(CFaults, AHandleWithoutMemoryIsThere) {
  CTable table;
  Memory::fail(1, Memory::Failing::kAlways);
  const int result = openReader(table);
  Memory::stopFailing();
  expectFailure(table, result, ZORBE_E_NO_MEMORY, "out of memory");
  EXPECT_EQ(put(table, 1, 1), ZORBE_E_CLOSED);
  EXPECT_EQ(zorbe_wait(table, 0), ZORBE_E_CLOSED);
  expectFailure(table, zorbe_error(table), ZORBE_E_NO_MEMORY, "out of memory");
  table.close();
  EXPECT_EQ(openReader(table), 0);
}

TEST_F(CFaults, AFullDiskSaysSo) {
  Fault::arm("posix_fallocate", 1, ENOSPC);
  CTable table;
  expectFailure(table, openWriter(table), ZORBE_E_NO_SPACE, "table 't': ");
}

TEST_F(CFaults, AnyOtherCallIsASystemError) {
  Fault::arm("eventfd", 1, EMFILE);
  CTable table;
  expectFailure(table, openWriter(table), ZORBE_E_SYSTEM,
                "table 't': eventfd() t: Too many open files");
  ASSERT_EQ(openReader(table), 0);
  Fault::arm("ppoll", 1, ENOMEM);
  expectFailure(table, zorbe_wait(table, -1), ZORBE_E_SYSTEM, "ppoll()");
  Fault::arm("ppoll", 1, EINTR);
  EXPECT_EQ(zorbe_wait(table, -1), ZORBE_INTERRUPTED);
}

TEST_F(CFaults, EachCallOfAWriterMayFail) {
  const Codes codes = sweepCalls(EIO, &CFaults::useWriter);
  EXPECT_TRUE(codes.has(ZORBE_E_SYSTEM));
  EXPECT_TRUE(codes.has(0));
  EXPECT_FALSE(codes.has(ZORBE_E_USAGE));
}

TEST_F(CFaults, EachCallOfAReaderMayFail) {
  const Codes codes = sweepCalls(EMFILE, &CFaults::useReader);
  EXPECT_THAT(codes.failures(), testing::IsSubsetOf({ZORBE_E_SYSTEM, ZORBE_E_CLOSED}));
  EXPECT_TRUE(codes.has(ZORBE_E_SYSTEM));
}

TEST_F(CFaults, EachAllocationMayFail) {
  for (const Use use : {&CFaults::useWriter, &CFaults::continueWriting, &CFaults::useReader}) {
    Codes codes = sweepAllocations(Memory::Failing::kOnce, 1, use);
    codes.add(sweepAllocations(Memory::Failing::kAlways, 5, use));
    EXPECT_THAT(codes.failures(), testing::IsSubsetOf({ZORBE_E_NO_MEMORY, ZORBE_E_CLOSED}));
    EXPECT_TRUE(codes.has(ZORBE_E_NO_MEMORY));
  }
}

}  // namespace
}  // namespace Zorbe::Test
