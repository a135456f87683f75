// SPDX-License-Identifier: MIT
//
// Where the entries of an index are entered, and which of them a search looks at.
#include "memory/index_memory.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Zorbe::Table;

namespace {

constexpr uint64_t kBuckets = 16;
constexpr Hash kFirst{0, 42};            // at home in the first of two lines
constexpr Hash kSecond{0xffffffff, 42};  // in the second

class IndexProbe : public testing::Test {
 protected:
  std::optional<bool> insert(Hash hash, uint32_t slot) { return index.insert(hash, slot); }

  // The buckets of a search that ends at none of them.
  std::vector<uint64_t> visited(Hash hash) {
    std::vector<uint64_t> buckets;
    EXPECT_FALSE(index.probe(hash, [&](uint64_t bucket, uint32_t) {
      buckets.push_back(bucket);
      return false;
    }));
    return buckets;
  }

  std::vector<uint64_t> memory = std::vector<uint64_t>(kIndexEntries / 8 + kBuckets);
  IndexMemory index{reinterpret_cast<char*>(memory.data()), kBuckets, 1};
};

}  // namespace

TEST_F(IndexProbe, AnEntryIsInTheFirstBucketThatHasRoom) {
  EXPECT_EQ(index.buckets(), kBuckets);
  EXPECT_EQ(insert(kSecond, 3), false);
  EXPECT_EQ(relaxed(index.entry(8)), uint64_t{42} << 32 | 4);
  EXPECT_EQ(memory[kIndexEntries / 8 + 8], uint64_t{42} << 32 | 4);
  EXPECT_EQ(insert(kSecond, 5), false);
  EXPECT_EQ(relaxed(index.entry(9)), uint64_t{42} << 32 | 6);
  EXPECT_TRUE(index.entomb(kSecond, 3));
  EXPECT_EQ(relaxed(index.entry(8)), kTombstone);
  EXPECT_FALSE(index.entomb(kSecond, 3));
  EXPECT_FALSE(index.entomb(kFirst, 5));
  EXPECT_EQ(insert(kSecond, 7), true);
  EXPECT_EQ(relaxed(index.entry(8)), uint64_t{42} << 32 | 8);
}

TEST_F(IndexProbe, AFullLineContinuesInTheNextAndTheLastInTheFirst) {
  for (uint32_t slot = 0; slot < 9; ++slot) EXPECT_EQ(insert(kSecond, slot), false);
  EXPECT_EQ(relaxed(index.entry(15)), uint64_t{42} << 32 | 8);
  EXPECT_EQ(relaxed(index.entry(0)), uint64_t{42} << 32 | 9);
  EXPECT_EQ(visited(kSecond), (std::vector<uint64_t>{8, 9, 10, 11, 12, 13, 14, 15, 0}));
  EXPECT_EQ(visited(kFirst), std::vector<uint64_t>{0});
}

TEST_F(IndexProbe, ASearchOfAFullIndexEnds) {
  for (uint32_t slot = 0; slot < kBuckets; ++slot) EXPECT_EQ(insert(kFirst, slot), false);
  EXPECT_EQ(insert(kFirst, 99), std::nullopt);
  EXPECT_EQ(insert(kSecond, 99), std::nullopt);
  EXPECT_EQ(visited(kSecond).size(), kBuckets);
  EXPECT_EQ(visited({0, 43}).size(), 0u);
}

TEST_F(IndexProbe, OnlyEntriesWithTheTagAreVisited) {
  insert({0, 1}, 3);
  insert({0, 0}, 4);
  insert({0, 1}, 5);
  EXPECT_EQ(visited({0, 1}), (std::vector<uint64_t>{0, 2}));
  EXPECT_EQ(visited({0, 0}), (std::vector<uint64_t>{1}));  // empty buckets have no slot
  EXPECT_TRUE(index.entomb({0, 1}, 3));
  EXPECT_EQ(visited({0, 1}), (std::vector<uint64_t>{2}));  // nor has a tombstone
}

TEST_F(IndexProbe, ASearchEndsAtALineWithAnEmptyBucketOrWhereAVisitEndsIt) {
  for (uint32_t slot = 0; slot < 8; ++slot) insert({0, 1}, slot);
  insert({0, 7}, 8);
  EXPECT_EQ(visited({0, 7}), std::vector<uint64_t>{8});
  unsigned visits = 0;
  EXPECT_TRUE(index.probe({0, 1}, [&](uint64_t bucket, uint32_t slot) {
    ++visits;
    EXPECT_EQ(bucket, slot);
    return slot == 2;
  }));
  EXPECT_EQ(visits, 3u);
}

// An entry that changes during every examination: the search ends all the same.
TEST_F(IndexProbe, AnEntryThatNeverRestsIsTakenForFound) {
  static_cast<void>(insert({0, 1}, 3));
  unsigned examined = 0;
  EXPECT_TRUE(index.find({0, 1}, [&](uint32_t slot) {
    ++examined;
    release(index.entry(0), uint64_t{1} << 32 | (slot == 3 ? 6 : 4));
    return true;
  }));
  EXPECT_EQ(examined, 64u);
}

TEST_F(IndexProbe, WhatTheExaminationDoesNotWantIsNotFound) {
  static_cast<void>(insert({0, 1}, 3));
  EXPECT_FALSE(index.find({0, 1}, [](uint32_t) { return false; }));
}
