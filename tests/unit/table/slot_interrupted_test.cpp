// SPDX-License-Identifier: MIT
//
// A reader in the middle of a store, and a writer in the middle of a read: at the first store to a
// page that may not be written until then.
#include "unit/table/interrupted_page.h"

#include "memory/slot_memory.h"

#include <cstring>
#include <vector>

namespace Zorbe::Test {
namespace {

using namespace Zorbe::Table;

// Pages, so that the image and each slot begin in one and end in another.
class SlotInterrupted : public testing::Test {
 protected:
  static constexpr uint64_t kSlotCount = 2;

  SlotInterrupted() {
    void* memory =
        ::mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    EXPECT_NE(memory, MAP_FAILED);
    base_ = static_cast<char*>(memory);
    memory_ = SlotMemory(base_, geometry_);
    store(0, 1);
    store(1, 2);
    store(0, 3);
  }
  ~SlotInterrupted() override { EXPECT_EQ(::munmap(base_, bytes_), 0); }

  void store(uint32_t slot, uint64_t sequence) {
    const std::vector<char> value(geometry_.valueBytes, static_cast<char>(sequence));
    const uint64_t key = slot;
    memory_.store(slot, {kLive, sequence, &key, value.data()});
  }

  // The sequence of a slot's record, which is whole; 0 when it cannot be read.
  uint64_t sequenceOf(uint32_t slot) {
    uint64_t key = 99;
    std::vector<char> value(geometry_.valueBytes);
    RecordOut out{&key, value.data(), geometry_.valueBytes};
    if (!memory_.read(slot, out)) return 0;
    EXPECT_EQ(key, slot);
    EXPECT_EQ(value, std::vector<char>(value.size(), static_cast<char>(out.sequence)));
    return out.sequence;
  }

  // The page of the last word of what begins there.
  char* lastPage(const void* begin) const {
    const auto at = reinterpret_cast<uintptr_t>(begin) + geometry_.slotBytes - 2 * kLine;
    return reinterpret_cast<char*>(at / InterruptedPage::size() * InterruptedPage::size());
  }

  // Stores to a slot, with `look` in the middle of the stores to the end of what begins there.
  void storeWith(const void* begin, uint32_t slot, uint64_t sequence, std::function<void()> look) {
    const InterruptedPage page(lastPage(begin), std::move(look));
    store(slot, sequence);
    EXPECT_EQ(page.interrupts(), 1);
    EXPECT_EQ(sequenceOf(slot), sequence);
  }

  // What a reader gets of a slot when `during` runs in the middle of its copy.
  uint64_t readWith(uint32_t slot, std::function<void()> during) {
    const InterruptedPage page(std::move(during));
    uint64_t key = 99;
    const auto bytes = static_cast<uint32_t>(InterruptedPage::size());
    RecordOut out{&key, page.memory(), bytes};
    EXPECT_TRUE(memory_.read(slot, out));
    EXPECT_EQ(page.interrupts(), 1);
    EXPECT_EQ(key, slot);
    const std::vector<char> whole(bytes, static_cast<char>(out.sequence));
    EXPECT_EQ(std::memcmp(page.memory(), whole.data(), bytes), 0);
    return out.sequence;
  }

  const Geometry geometry_{8, static_cast<uint32_t>(3 * InterruptedPage::size())};
  const size_t bytes_ =
      static_cast<size_t>(geometry_.fileBytes(kSlotCount)) + InterruptedPage::size();
  char* base_ = nullptr;
  SlotMemory memory_;
};

TEST_F(SlotInterrupted, AReaderDuringAStoreGetsTheRecordBefore) {
  storeWith(&memory_.slot(0), 0, 4, [&] {
    EXPECT_TRUE(memory_.isBeingStored(0));
    EXPECT_EQ(sequenceOf(0), 3u);
    EXPECT_EQ(sequenceOf(1), 2u);
  });
}

TEST_F(SlotInterrupted, AReaderWhileTheImageIsSavedGetsTheRecordOfTheSlot) {
  storeWith(&memory_.image(), 0, 4, [&] {
    EXPECT_EQ(relaxed(memory_.image().sequence), 7u);
    EXPECT_FALSE(memory_.isBeingStored(0));
    EXPECT_EQ(sequenceOf(0), 3u);
    EXPECT_EQ(sequenceOf(1), 2u);
  });
}

TEST_F(SlotInterrupted, AWriterKilledWhileItSavesTheImageChangesNothing) {
  storeWith(&memory_.image(), 0, 4, [&] {
    std::vector<char> copy(base_, base_ + bytes_ - InterruptedPage::size());
    const SlotMemory next(copy.data(), geometry_);
    EXPECT_TRUE(next.undoStore(kSlotCount));
    EXPECT_EQ(next.sequenceOf(0), 3u);
    EXPECT_EQ(relaxed(next.slot(0).guard), relaxed(memory_.slot(0).guard));
  });
}

TEST_F(SlotInterrupted, AReadDuringWhichTheSlotChangesIsRepeated) {
  EXPECT_EQ(readWith(0, [&] { store(0, 4); }), 4u);
  EXPECT_EQ(readWith(0, [&] { store(1, 5); }), 4u);
}

TEST_F(SlotInterrupted, AReadOfTheImageDuringWhichThatChangesIsRepeated) {
  Slot& slot = memory_.slot(0);
  const uint64_t guard = relaxed(slot.guard);
  release(slot.guard, guard - 1);  // as before the end of its last store
  EXPECT_EQ(readWith(0, [] {}), 1u);
  EXPECT_EQ(readWith(0,
                     [&] {
                       release(slot.guard, guard);
                       store(1, 6);
                     }),
            3u);
}

}  // namespace
}  // namespace Zorbe::Test
