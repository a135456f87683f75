// SPDX-License-Identifier: MIT
//
// Allocations of rounds of the kick channel, with both sides in one process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "harness/allocations.h"
#include "kick/one_process.h"

namespace {

class KickCostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!Bench::countsAllocations()) GTEST_SKIP() << "sanitizers bring an allocator of their own";
  }

  // Of `rounds` rounds with so many readers, after a few that warm up.
  long allocationsOf(int rounds, size_t readers) {
    Bench::OneProcess both(readers);
    for (int each = 0; each < 3; ++each) both.round();
    const long before = Bench::allocations();
    const long released = Bench::releases();
    for (int each = 0; each < rounds; ++each) both.round();
    const long allocated = Bench::allocations() - before;
    EXPECT_EQ(Bench::releases() - released, allocated);
    return allocated;
  }
};

TEST_F(KickCostTest, TheCountsSeeNewAndMallocDeleteAndFree) {
  const long before = Bench::allocations();
  const long released = Bench::releases();
  const auto made = std::make_unique<long>(1);
  void* volatile taken = std::malloc(10);
  std::free(taken);
  EXPECT_GE(Bench::allocations(), before + 2);
  EXPECT_GE(Bench::releases(), released + 1);
  EXPECT_EQ(*made, 1);
}

TEST_F(KickCostTest, ARoundAllocatesTheNodeOfTheReaderThatFallsAsleepAndNothingElse) {
  EXPECT_EQ(allocationsOf(1000, 1), 1000);
}

TEST_F(KickCostTest, ARoundAllocatesOneNodeForEachReader) {
  EXPECT_EQ(allocationsOf(20, 200), 20 * 200);
}

TEST_F(KickCostTest, ANodeIsFreedWhenItsReaderIsWoken) {
  constexpr long readers = 7;
  Bench::OneProcess both(readers);
  for (int each = 0; each < 3; ++each) both.round();
  const long allocated = Bench::allocations();
  const long released = Bench::releases();
  both.wake();
  EXPECT_EQ(Bench::releases() - released, readers);
  EXPECT_EQ(Bench::allocations() - allocated, 0);
  both.settle();
  EXPECT_EQ(Bench::releases() - released, readers);
  EXPECT_EQ(Bench::allocations() - allocated, readers);
}

}  // namespace
