// SPDX-License-Identifier: MIT
//
// One record at a time, in memory that no other process has.
#include "memory/slot_memory.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

using namespace Zorbe::Table;

namespace {

constexpr uint32_t kValueBytes = 20;
constexpr uint64_t kSlotCount = 3;
using Key = std::array<uint64_t, 2>;
using Bytes = std::array<char, kValueBytes + 1>;  // and one that nobody writes

Bytes bytesOf(char first) {
  Bytes bytes{};
  for (uint32_t i = 0; i < kValueBytes; ++i)
    bytes[i] = static_cast<char>(first + static_cast<int>(i));
  bytes.back() = '#';
  return bytes;
}

struct alignas(kLine) Line {
  Word words[kLine / 8];
};

class SlotMemoryTest : public testing::Test {
 protected:
  void store(uint32_t index, uint64_t state, uint64_t sequence, Key words, const void* bytes) {
    memory.store(index, {state, sequence, words.data(), bytes});
  }

  bool read(uint32_t index, uint32_t bytes = kValueBytes) {
    out = {key.data(), value.data(), bytes};
    return memory.read(index, out);
  }

  // What a store of slot 1 leaves behind that ended after its first word.
  void interruptStore() {
    store(1, kLive, 5, {1, 2}, bytesOf('a').data());
    store(1, kLive, 6, {1, 2}, bytesOf('b').data());
    release(memory.slot(1).guard, 3);
    release(memory.slot(1).sequence, 99);
  }

  const Geometry geometry{16, kValueBytes};
  std::vector<Line> lines =
      std::vector<Line>(static_cast<size_t>(geometry.fileBytes(kSlotCount) / kLine));
  SlotMemory memory{reinterpret_cast<char*>(lines.data()), geometry};
  Key key{};
  Bytes value = bytesOf('.');
  RecordOut out{};
};

}  // namespace

TEST_F(SlotMemoryTest, ReadsWhatWasStored) {
  EXPECT_TRUE(read(1));
  EXPECT_EQ(out.state, kFree);
  store(1, kLive, 5, {1, 2}, bytesOf('a').data());
  EXPECT_TRUE(read(1));
  EXPECT_EQ(out.state, kLive);
  EXPECT_EQ(out.sequence, 5u);
  EXPECT_EQ(key, (Key{1, 2}));
  EXPECT_EQ(value, bytesOf('a'));
  store(1, kErased, 6, {1, 2}, nullptr);  // the value stays
  EXPECT_TRUE(read(1));
  EXPECT_EQ(out.state, kErased);
  EXPECT_EQ(out.sequence, 6u);
  EXPECT_EQ(value, bytesOf('a'));
  EXPECT_EQ(memory.stateOf(1), kErased);
  EXPECT_EQ(memory.sequenceOf(1), 6u);
  EXPECT_FALSE(memory.isBeingStored(1));
  for (const uint32_t other : {0u, 2u}) EXPECT_EQ(memory.stateOf(other), kFree);
}

TEST_F(SlotMemoryTest, ReadsAsManyBytesAsAreWanted) {
  store(1, kLive, 5, {1, 2}, bytesOf('a').data());
  for (const uint32_t bytes : {0u, 1u, 7u, 8u, 9u, 16u, 19u}) {
    value = bytesOf('.');
    EXPECT_TRUE(read(1, bytes));
    Bytes expected = bytesOf('.');
    std::memcpy(expected.data(), bytesOf('a').data(), bytes);
    EXPECT_EQ(value, expected) << bytes;
  }
  out = {key.data(), nullptr};
  EXPECT_TRUE(memory.read(1, out));
  EXPECT_EQ(key, (Key{1, 2}));
}

TEST_F(SlotMemoryTest, TellsKeysApart) {
  store(1, kLive, 5, {1, 2}, bytesOf('a').data());
  EXPECT_TRUE(memory.keyIs(1, Key{1, 2}.data()));
  EXPECT_FALSE(memory.keyIs(1, Key{1, 3}.data()));
  EXPECT_FALSE(memory.keyIs(1, Key{2, 2}.data()));
}

TEST_F(SlotMemoryTest, AStoreSavesTheSlotFirst) {
  store(1, kLive, 5, {1, 2}, bytesOf('a').data());
  store(1, kLive, 6, {1, 2}, bytesOf('b').data());
  const Image& image = memory.image();
  EXPECT_EQ(relaxed(image.sequence), 4u);
  EXPECT_EQ(relaxed(image.slot), 1u);
  EXPECT_EQ(relaxed(image.guard), 2u);
  EXPECT_EQ(relaxed(image.words[0]), kLive);
  EXPECT_EQ(relaxed(image.words[1]), 5u);
  EXPECT_EQ(relaxed(memory.slot(1).guard), 4u);
}

TEST_F(SlotMemoryTest, ASlotThatIsBeingStoredIsReadFromTheImage) {
  interruptStore();
  EXPECT_TRUE(memory.isBeingStored(1));
  EXPECT_TRUE(read(1));
  EXPECT_EQ(out.sequence, 5u);
  EXPECT_EQ(value, bytesOf('a'));
}

TEST_F(SlotMemoryTest, AnImageThatIsNotTheSlotsIsNotRead) {
  interruptStore();
  Image& image = memory.image();
  const auto expectUnreadable = [&](Word& word, uint64_t other) {
    const uint64_t before = relaxed(word);
    release(word, other);
    EXPECT_FALSE(read(1));
    release(word, before);
    EXPECT_TRUE(read(1));
  };
  expectUnreadable(image.slot, 0);
  expectUnreadable(image.guard, 3);
  expectUnreadable(image.guard, 0);
  expectUnreadable(image.sequence, 5);
}

TEST_F(SlotMemoryTest, UndoesTheStoreThatWasInterrupted) {
  interruptStore();
  EXPECT_TRUE(memory.undoStore(kSlotCount));
  EXPECT_FALSE(memory.isBeingStored(1));
  EXPECT_EQ(relaxed(memory.slot(1).guard), 4u);
  EXPECT_TRUE(read(1));
  EXPECT_EQ(out.sequence, 5u);
  EXPECT_EQ(value, bytesOf('a'));
  EXPECT_TRUE(memory.undoStore(kSlotCount));  // nothing any more
  EXPECT_EQ(relaxed(memory.slot(1).guard), 4u);
}

TEST_F(SlotMemoryTest, UndoesNothingThatWasFinished) {
  store(1, kLive, 5, {1, 2}, bytesOf('a').data());
  store(1, kLive, 6, {1, 2}, bytesOf('b').data());
  EXPECT_TRUE(memory.undoStore(kSlotCount));
  EXPECT_EQ(memory.sequenceOf(1), 6u);
  EXPECT_EQ(relaxed(memory.slot(1).guard), 4u);
}

TEST_F(SlotMemoryTest, AnUnfinishedImageIsOfNoSlot) {
  interruptStore();
  release(memory.image().sequence, 5);
  EXPECT_TRUE(memory.undoStore(kSlotCount));
  EXPECT_EQ(relaxed(memory.image().sequence), 6u);
  EXPECT_EQ(relaxed(memory.image().slot), kNoSlot);
  EXPECT_EQ(memory.sequenceOf(1), 99u);
}

TEST_F(SlotMemoryTest, AnImageOfASlotThatThereIsNotIsLeftAlone) {
  interruptStore();
  EXPECT_TRUE(memory.undoStore(1));
  EXPECT_EQ(memory.sequenceOf(1), 99u);
  EXPECT_TRUE(memory.undoStore(2));
  EXPECT_EQ(memory.sequenceOf(1), 5u);
}

TEST_F(SlotMemoryTest, AnImageThatContradictsItselfIsNotUndone) {
  interruptStore();
  release(memory.image().guard, 3);
  EXPECT_FALSE(memory.undoStore(kSlotCount));
  EXPECT_EQ(memory.sequenceOf(1), 99u);
}

namespace {

// Slots of these values, which neither a store of one nor its image touches the others of.
void expectNeighboursStay(uint32_t valueBytes) {
  const Geometry geometry(8, valueBytes);
  std::vector<Line> lines(static_cast<size_t>(geometry.fileBytes(kSlotCount) / kLine));
  const SlotMemory memory(reinterpret_cast<char*>(lines.data()), geometry);
  const std::vector<char> value(valueBytes, 'v');
  const uint64_t keys[] = {7, 8, 9};
  for (const uint32_t index : {2u, 0u, 1u, 0u}) {
    memory.store(index, {kLive, 5, &keys[index], value.data()});
  }
  for (uint32_t index = 0; index < kSlotCount; ++index) {
    uint64_t key = 0;
    std::vector<char> found(valueBytes);
    RecordOut out{&key, found.data(), valueBytes};
    EXPECT_TRUE(memory.read(index, out));
    EXPECT_EQ(key, keys[index]);
    EXPECT_EQ(found, value);
    EXPECT_EQ(relaxed(memory.slot(index).guard), index == 0 ? 4u : 2u);
  }
}

}  // namespace

TEST(SlotMemory, AStoreEndsWithItsSlot) {
  constexpr uint32_t kNoPadding = 32;
  ASSERT_EQ(Geometry(8, kNoPadding).slotBytes, 8 * (1 + 2 + 1 + kNoPadding / 8));
  expectNeighboursStay(kNoPadding);
  for (const uint32_t bytes : {1u, 7u, 8u, 9u, 31u, 33u}) expectNeighboursStay(bytes);
}

TEST(SlotMemory, TheImageEndsWhereTheSlotsBegin) {
  constexpr uint32_t kToThePage = 3728;
  const Geometry geometry(8, kToThePage);
  ASSERT_EQ(geometry.slotsOffset,
            Geometry::imageOffset() + offsetof(Image, words) + 8 * geometry.recordWords);
  expectNeighboursStay(kToThePage);
}
