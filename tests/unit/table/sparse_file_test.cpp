// SPDX-License-Identifier: MIT
//
// Files that are longer than what is in them.
#include "unit/table/table_damage_fixture.h"

#include <zorbe/exceptions.h>

#include <sys/stat.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::SlotsHeader;

class SparseFile : public TableDamage, public testing::WithParamInterface<const char*> {};

TEST_P(SparseFile, OfSixteenGigabytesIsNeitherReadNorFilled) {
  makeTable();
  const std::string file = path(GetParam());
  const auto length = off_t{16} << 30;
  ASSERT_EQ(::truncate(file.c_str(), length), 0);
  const uint64_t size = uint64_t{1} << 30;  // buckets or entries; slots of any size
  overwriteWord(file,
                GetParam() == std::string("slots") ? offsetof(SlotsHeader, capacity)
                                                   : offsetof(Table::Prologue, size),
                GetParam() == std::string("slots") ? size / 16 : size);
  try {
    const auto reader = openReader();
    ASSERT_NE(reader, nullptr);
    Copy copy(*reader);
    copy.drain();
    EXPECT_EQ(GetParam(), std::string("conquer.1"));  // of use for changes only
  } catch (const CorruptionDetectedException& failure) {
    EXPECT_THAT(failure.what(), testing::HasSubstr(file + " is mostly holes"));
  }
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_LT(status.st_blocks, 2048);
  const auto table = openWriter();
  if (GetParam() != std::string("slots")) expectAllRecords(*table);
  put(*table, 5, 55);
  EXPECT_EQ(get(*openReader(), 5), 55u);
}

INSTANTIATE_TEST_SUITE_P(Each, SparseFile, testing::Values("slots", "buckets", "conquer.1"),
                         [](const auto& name) {
                           const std::string file = name.param;
                           return file.substr(0, file.find('.'));
                         });

TEST_F(TableDamage, PopulatingDoesNotFillWhatFollowsTheSlots) {
  makeTable();
  ASSERT_EQ(::truncate(path("slots").c_str(), off_t{1} << 30), 0);
  options.hints.populate = true;
  Table::ReaderOptions reading{options.place, options.hints};
  const auto reader = Table::TableReader::open(reading);
  ASSERT_NE(reader, nullptr);
  expectAllRecords(*reader);
  const auto table = openWriter();
  expectAllRecords(*table);
  struct stat status {};
  ASSERT_EQ(::stat(path("slots").c_str(), &status), 0);
  EXPECT_LT(status.st_blocks, 2048);
  for (uint64_t key = 1000; key < 1500; ++key) put(*table, key, key);
  for (uint64_t key = 1000; key < 1500; ++key) EXPECT_EQ(get(*reader, key), key);
}

}  // namespace
}  // namespace Zorbe::Test
