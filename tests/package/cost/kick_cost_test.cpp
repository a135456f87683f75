// SPDX-License-Identifier: MIT
//
// What rounds of the kick channel ask of the heap, with both sides in one process.
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
    for (int each = 0; each < rounds; ++each) both.round();
    return Bench::allocations() - before;
  }
};

TEST_F(KickCostTest, TheCountSeesNewAndMalloc) {
  const long before = Bench::allocations();
  const auto made = std::make_unique<long>(1);
  void* volatile taken = std::malloc(10);
  std::free(taken);
  EXPECT_GE(Bench::allocations(), before + 2);
  EXPECT_EQ(*made, 1);
}

TEST_F(KickCostTest, ARoundAllocatesNothingOnEitherSide) {
  EXPECT_EQ(allocationsOf(1000, 1), 0);
}

TEST_F(KickCostTest, ARoundWithManyReadersAllocatesNothing) {
  EXPECT_EQ(allocationsOf(20, 200), 0);
}

}  // namespace
