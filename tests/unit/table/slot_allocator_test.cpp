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

TEST(SlotAllocator, TakesNoSlotThatIsUsedWhileOthersWereLeftOut) {
  SlotAllocator allocator;
  allocator.extend(3);
  allocator.setUsed(1);
  EXPECT_FALSE(allocator.take(1));
  EXPECT_TRUE(allocator.take(0));
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

TEST(SlotAllocator, ASlotIsFreeWhenItsErasureIsOlderThanTheLog) {
  std::vector<char> bytes(1 << 16);
  const Table::SlotMemory memory(bytes.data(), {8, kValueBytes});
  SlotAllocator allocator;
  allocator.extend(2);
  for (const uint32_t slot : {0u, 1u}) {
    allocator.setUsed(slot);
    Table::release(memory.slot(slot).sequence, 5 + slot);
    EXPECT_TRUE(allocator.release(slot));
  }
  EXPECT_EQ(allocator.candidate(memory, 5), std::nullopt);
  EXPECT_EQ(allocator.candidate(memory, 6), 0u);
  EXPECT_TRUE(allocator.take(0));
  EXPECT_EQ(allocator.candidate(memory, 6), std::nullopt);
  EXPECT_EQ(allocator.candidate(memory, 7), 1u);
  EXPECT_TRUE(allocator.take(1));
  EXPECT_EQ(allocator.candidate(memory, 100), std::nullopt);
  EXPECT_EQ(allocator.used(), 2u);
}

// Whichever of three is used again first: the order of the others stays.
TEST(SlotAllocator, KeepsTheOrderOfErasure) {
  std::vector<char> bytes(1 << 16);
  const Table::SlotMemory memory(bytes.data(), {8, kValueBytes});
  for (const uint32_t again : {0u, 1u, 2u}) {
    SlotAllocator allocator;
    allocator.extend(3);
    for (const uint32_t slot : {0u, 1u, 2u}) allocator.setUsed(slot);
    for (const uint32_t slot : {0u, 1u, 2u}) EXPECT_TRUE(allocator.release(slot));
    EXPECT_TRUE(allocator.take(again));
    std::vector<uint32_t> order;
    while (const auto slot = allocator.candidate(memory, 1)) {
      order.push_back(*slot);
      EXPECT_TRUE(allocator.take(*slot));
    }
    std::vector<uint32_t> expected{0, 1, 2};
    expected.erase(expected.begin() + again);
    EXPECT_EQ(order, expected);
    EXPECT_TRUE(allocator.release(1));
    EXPECT_EQ(allocator.candidate(memory, 1), 1u);
  }
}

}  // namespace
}  // namespace Zorbe::Test
