// SPDX-License-Identifier: MIT
//
// What the guide of the table promises and no other test shows.
#include "unit/table/table_program.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>

#include <filesystem>

namespace Zorbe::Test {
namespace {

using TablePromises = TableProgram;

TEST_F(TablePromises, LookupsAloneSeeWhatIsNotPublishedAndWhatTheNextWriterPuts) {
  auto writer = std::make_unique<Writer>("t", options);
  const Reader reader("t", options);
  writer->put(1, {10, 0});
  EXPECT_EQ(reader.get(1)->a, 10);
  writer.reset();
  writer = std::make_unique<Writer>("t", options);
  writer->put(1, {11, 0});
  EXPECT_EQ(reader.get(1)->a, 11);
  for (uint32_t key = 0; key < 5000; ++key) writer->put(key, {key, 0});
  for (uint32_t key = 0; key < 5000; ++key) ASSERT_EQ(reader.get(key)->a, key) << "after growth";
}

TEST_F(TablePromises, LookupsAloneNoticeANewTableByRefresh) {
  Reader reader("t", options);
  Writer writer("t", options);
  writer.put(1, {10, 0});
  EXPECT_FALSE(reader.contains(1));
  EXPECT_TRUE(reader.refresh());
  EXPECT_TRUE(reader.contains(1));
}

TEST_F(TablePromises, UnderAnotherSpellingWritersAreRefusedAndReadersFollowUnconnected) {
  Writer writer("t", options);
  options.root += "/";
  EXPECT_THROW(Writer("t", options), DuplicateWriterException);
  Reader reader("t", options);
  writer.put(1, {10, 0});
  EXPECT_TRUE(sees(reader, 1, 10));
  writer.put(1, {11, 0});
  EXPECT_TRUE(sees(reader, 1, 11));
  EXPECT_EQ(reader.state(), State::orphaned);
}

TEST_F(TablePromises, AReadLockOfAnybodyKeepsANewWriterOut) {
  static_cast<void>(Writer("t", options));
  const int fd = ::open(inRoot("t/slots").c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  ASSERT_EQ(::fcntl(fd, F_OFD_SETLK, &lock), 0);
  try {
    Writer writer("t", options);
    ADD_FAILURE() << "was not refused";
  } catch (const DuplicateWriterException& refusal) {
    EXPECT_THAT(refusal.what(), testing::HasSubstr(inRoot("t/slots") + " is locked: "));
  }
  ASSERT_EQ(::close(fd), 0);
  EXPECT_NO_THROW(Writer("t", options));
}

TEST_F(TablePromises, LookupsGoOnInAChildProcess) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  const Reader reader("t", options);
  const Table::View<uint32_t, Record> view = reader.view();
  EXPECT_EQ(inChild([&] { return reader.get(1)->a == 10 && view.get(1)->a == 10 ? 0 : 1; }), 0);
}

TEST_F(TablePromises, AHandleFindsItsKeyInTheTableThatReplacedTheOldOne) {
  auto writer = std::make_unique<Writer>("t", options);
  writer->put(1, {10, 0});
  Reader reader("t", options);
  const auto handle = reader.find(1);
  writer.reset();
  std::filesystem::remove_all(inRoot("t"));
  writer = std::make_unique<Writer>("t", options);
  writer->put(2, {20, 0});
  EXPECT_TRUE(reader.refresh());
  Record record{};
  EXPECT_FALSE(reader.read(*handle, record));
  writer->put(1, {11, 0});
  EXPECT_TRUE(reader.read(*handle, record));
  EXPECT_EQ(record.a, 11);
}

struct Partly {
  int32_t listed;
  int32_t leftOut;
};
ZORBE_FIELDS(Partly, listed);

TEST_F(TablePromises, AMemberThatIsNotListedIsReadAsZero) {
  Table::Writer<int, Partly> writer("t", options);
  writer.put(1, {10, 11});
  const Table::Reader<int, Partly> reader("t", options);
  EXPECT_EQ(reader.get(1)->listed, 10);
  EXPECT_EQ(reader.get(1)->leftOut, 0);
}

}  // namespace
}  // namespace Zorbe::Test
