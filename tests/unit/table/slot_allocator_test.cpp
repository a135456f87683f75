// SPDX-License-Identifier: MIT
#include "support/table_fixture.h"

#include "memory/slot_allocator.h"

#include <vector>

namespace Zorbe::Test {
namespace {

using Table::SlotAllocator;

// A writer that takes over, of a table whose first slots were never filled.
TEST(SlotAllocator, FillsTheSlotsThatWereLeftOut) {
  std::vector<char> bytes(1 << 16);
  const Table::SlotMemory memory(bytes.data(), {8, kValueBytes});
  SlotAllocator allocator;
  allocator.prepare(6);
  allocator.extend(6);
  allocator.setUsed(1);
  allocator.setUsed(4);
  EXPECT_EQ(allocator.used(), 2u);
  std::vector<uint32_t> taken;
  while (const auto slot = allocator.candidate(memory, 0)) {
    EXPECT_EQ(allocator.candidate(memory, 0), slot);
    EXPECT_TRUE(allocator.take(*slot));
    taken.push_back(*slot);
  }
  EXPECT_EQ(taken, (std::vector<uint32_t>{3, 2, 0, 5}));
  EXPECT_EQ(allocator.used(), 6u);
  EXPECT_EQ(allocator.capacity(), 6u);
}

TEST(SlotAllocator, TakesAndReleasesASlotOnce) {
  SlotAllocator allocator;
  allocator.extend(3);
  allocator.setUsed(0);
  allocator.setUsed(1);
  EXPECT_FALSE(allocator.take(0));
  EXPECT_TRUE(allocator.release(0));
  EXPECT_FALSE(allocator.release(0));
  EXPECT_TRUE(allocator.release(1));
  EXPECT_TRUE(allocator.take(0));
  EXPECT_TRUE(allocator.take(1));
  EXPECT_FALSE(allocator.take(1));
  EXPECT_TRUE(allocator.take(2));
}

}  // namespace
}  // namespace Zorbe::Test
