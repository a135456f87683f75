// SPDX-License-Identifier: MIT
//
// What View reads by itself.
#include "unit/table/window_fixture.h"

#include <zorbe/exceptions.h>

#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::relaxed;
using Table::release;
using Table::ViewCore;
using Table::Detail::Glance;
using Table::Detail::Window;

// What a writer stopped after its first words leaves behind.
void beginStore(const Table::SlotMemory& memory, uint32_t index) {
  Table::Image& image = memory.image();
  Table::Slot& slot = memory.slot(index);
  const uint64_t guard = relaxed(slot.guard);
  release(image.slot, index);
  release(image.guard, guard);
  const Table::Word* words = &slot.state;
  for (uint32_t i = 0; i < memory.geometry().recordWords; ++i) {
    release(image.words[i], relaxed(words[i]));
  }
  release(slot.guard, guard + 1);
  release(slot.key[1], 12345);
}

// Lines of the index from the one at which the search of a key begins to that of its entry.
uint64_t distanceOf(const Table::IndexMemory& index, uint64_t key) {
  const Table::Hash hash = index.hash(&key, 1);
  const uint64_t lines = index.buckets() / Table::Detail::kLineEntries;
  uint64_t distance = 0;
  index.probe(hash, [&](uint64_t bucket, uint32_t) {
    const uint64_t line = bucket / Table::Detail::kLineEntries;
    distance = (line + lines - Table::Detail::homeLine(hash, lines)) % lines;
    return true;
  });
  return distance;
}

// But for the few whose entries are far away, by the random hash of each table.
TEST_F(WindowTest, RecordsThatAreThereAreReadWithoutACall) {
  options.records = 1000;
  const auto table = openWriter();
  fill(*table, 1000);
  mapTable();
  const TableView view = makeView();
  EXPECT_EQ(get(view, 1), 1u);
  const uint64_t calls = callsOf([&] {
    for (uint64_t key = 0; key < 1000; ++key) {
      EXPECT_EQ(get(view, key), key);
      const auto handle = view.find(key);
      Bytes bytes{};
      EXPECT_TRUE(view.read(*handle, bytes));
      EXPECT_EQ(bytes.value().number(), key);
    }
  });
  uint64_t far = 0;
  for (uint64_t key = 0; key < 1000; ++key) far += distanceOf(table->index().memory(), key) >= 4;
  EXPECT_LT(far, 40u) << "of 1,000";
  EXPECT_EQ(calls, 3 * far) << "get(), contains() and find()";
}

TEST_F(WindowTest, WhatIsNotThereIsTheLibrarysToSay) {
  const auto table = openWriter();
  put(*table, 1, 10);
  const TableView view = makeView();
  EXPECT_EQ(get(view, 1), std::nullopt) << "no table yet";
  mapTable();
  EXPECT_EQ(get(view, 1), 10u);
  EXPECT_EQ(get(view, 2), std::nullopt);
  const auto handle = view.find(1);
  EXPECT_TRUE(erase(*table, 1));
  Bytes bytes{};
  EXPECT_FALSE(view.read(*handle, bytes));
  EXPECT_EQ(callsOf([&] { EXPECT_EQ(get(view, 1), std::nullopt); }), 2u);
  put(*table, 1, 11);
  EXPECT_EQ(callsOf([&] { EXPECT_EQ(get(view, 1), 11u); }), 0u);
  EXPECT_FALSE(view.find(2).has_value());
}

TEST_F(WindowTest, ARecordThatIsBeingStoredComesFromTheImage) {
  const auto table = mapRecords(2);
  const TableView view = makeView();
  const auto handle = view.find(1);
  beginStore(table->slots().memory(), 0);
  Bytes bytes{};
  EXPECT_EQ(callsOf([&] { EXPECT_TRUE(view.read(*handle, bytes)); }), 1u);
  EXPECT_EQ(bytes.value().number(), 10u);
  EXPECT_EQ(callsOf([&] { EXPECT_EQ(get(view, 1), 10u); }), 2u);
  EXPECT_EQ(callsOf([&] { EXPECT_EQ(get(view, 2), 20u); }), 0u);
}

TEST_F(WindowTest, GrowthIsFollowed) {
  options.records = 1;
  const auto table = openWriter();
  mapTable();
  const TableView view = makeView();
  for (uint64_t key = 0; key < 3000; ++key) {
    put(*table, key, key);
    ASSERT_EQ(get(view, key), key);
  }
  EXPECT_LE(callsOf([&] {
              for (uint64_t key = 0; key < 3000; ++key) ASSERT_EQ(get(view, key), key);
            }),
            120u)
      << "of 6,000";
}

TEST_F(WindowTest, ATableInTheOldOnesPlaceIsFollowed) {
  auto table = mapRecords(1);
  const TableView view = makeView();
  const auto handle = view.find(1);
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  const auto next = table->recreate();
  table.reset();
  put(*next, 2, 20);
  put(*next, 1, 11);
  EXPECT_EQ(get(view, 1), 10u) << "the old table, until the reader has found the new one";
  mapTable();
  EXPECT_EQ(get(view, 1), 11u);
  EXPECT_EQ(get(view, 2), 20u);
  Bytes bytes{};
  EXPECT_EQ(callsOf([&] { EXPECT_TRUE(view.read(*handle, bytes)); }), 1u);
  EXPECT_EQ(bytes.value().number(), 11u);
  shared_->set(nullptr);
  EXPECT_EQ(get(view, 1), std::nullopt);
  EXPECT_EQ(window_->shape, 0u);
}

// A call that throws may have unmapped what the window has shown.
TEST_F(WindowTest, IsEmptyAfterACallThatThrew) {
  const auto table = mapRecords(1);
  const TableView view = makeView();
  EXPECT_EQ(get(view, 1), 10u);
  EXPECT_NE(window_->shape, 0u);
  Table::Slot& slot = table->slots().memory().slot(0);
  release(slot.guard, relaxed(slot.guard) + 1);  // without an image
  EXPECT_THROW(static_cast<void>(view.get(1)), CorruptionDetectedException);
  EXPECT_EQ(window_->shape, 0u);
}

// Keys whose search begins at the last line, more of them than it holds.
TEST_F(WindowTest, ASearchGoesOnAtTheFirstLine) {
  options.records = 64;
  const auto table = openWriter();
  mapTable();
  const TableView view = makeView();
  EXPECT_EQ(get(view, 0), std::nullopt);
  const Window& window = *window_;
  std::vector<uint64_t> keys;
  for (uint64_t key = 0; keys.size() < 12; ++key) {
    const auto hash = Table::Detail::hashOf(&key, 1, window.seed);
    if (Table::Detail::homeLine(hash, window.lines) + 1 == window.lines) keys.push_back(key);
  }
  for (const uint64_t key : keys) put(*table, key, key + 1);
  EXPECT_EQ(callsOf([&] {
              for (const uint64_t key : keys) EXPECT_EQ(get(view, key), key + 1);
            }),
            0u);
}

TEST_F(WindowTest, APrefixOfTheValueIsReadFromLargerSlots) {
  const auto table = openWriter();
  for (uint64_t key = 0; key < 10; ++key) put(*table, key, key + 7);
  auto reader = openReader();
  reader->setValueBytes(8);
  shared_->set(std::move(reader));
  ViewCore core(shared_);
  window_ = &core.window();
  const Table::View<uint64_t, uint64_t> view(std::move(core));
  EXPECT_EQ(view.get(0), 7u);
  EXPECT_EQ(callsOf([&] {
              for (uint64_t key = 0; key < 10; ++key) EXPECT_EQ(view.get(key), key + 7);
            }),
            0u);
}

// Two keys may have the same tag: here one whose entry leads to the other one's slot.
TEST_F(WindowTest, TheKeyIsComparedNotOnlyItsTag) {
  const auto table = mapRecords(2);
  const TableView view = makeView();
  EXPECT_EQ(get(view, 1), 10u);
  const Window& window = *window_;
  const uint64_t key = 1;
  const auto hash = Table::Detail::hashOf(&key, 1, window.seed);
  const auto& index = table->index().memory();
  ASSERT_TRUE(index.entomb(hash, 0));
  ASSERT_TRUE(index.insert(hash, 1).has_value());
  Bytes bytes{};
  EXPECT_EQ((Glance<1, kValueBytes>(window).find({1}, &bytes)), (Glance<1, kValueBytes>::kMiss));
  EXPECT_FALSE((Glance<1, kValueBytes>(window).read(window.incarnation, 1, {1}, &bytes)));
  EXPECT_EQ(get(view, 1), std::nullopt);
  EXPECT_EQ(get(view, 2), 20u);
}

// A window that this program does not expect is not looked through.
TEST_F(WindowTest, AnotherShapeOrLayoutIsAMiss) {
  const auto table = mapRecords(1);
  const TableView view = makeView();
  EXPECT_EQ(get(view, 1), 10u);
  Window window = *window_;
  using Fitting = Glance<1, kValueBytes>;
  Bytes bytes{};
  EXPECT_EQ(Fitting(window).find({1}, &bytes), 0u);
  EXPECT_EQ((Glance<1, kValueBytes + 1>(window).find({1}, nullptr)), Fitting::kMiss);
  EXPECT_EQ((Glance<2, kValueBytes>(window).find({1, 0}, nullptr)), Fitting::kMiss);
  EXPECT_FALSE(Fitting(window).read(window.incarnation + 1, 0, {1}, &bytes));
  window.capacity = 0;
  EXPECT_EQ(Fitting(window).find({1}, nullptr), Fitting::kMiss);
  EXPECT_FALSE(Fitting(window).read(window.incarnation, 0, {1}, &bytes));
  window = *window_;
  window.shape += uint64_t{1} << 48;
  EXPECT_EQ(Fitting(window).find({1}, nullptr), Fitting::kMiss);
  window = *window_;
  ++window.mappedVersion;
  EXPECT_EQ(Fitting(window).find({1}, nullptr), Fitting::kMiss);
}

}  // namespace
}  // namespace Zorbe::Test
