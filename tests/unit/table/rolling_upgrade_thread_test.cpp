// SPDX-License-Identifier: MIT
//
// Writers and readers of different versions of a record, as they meet during an upgrade.
#include "unit/table/table_program.h"

namespace Zorbe::Test {
namespace {

using RollingUpgrade = TableProgram;
using NewWriter = Table::Writer<uint32_t, LargerRecord>;

TEST_F(RollingUpgrade, AReaderOfTheOldRecordFollowsTheWriterOfTheNewOne) {
  auto old = std::make_unique<Writer>("t", options);
  old->put(1, {10, 11});
  Reader reader("t", options);
  EXPECT_TRUE(sees(reader, 1, 10));
  old.reset();

  EXPECT_THROW(NewWriter("t", options), Table::Error);
  EXPECT_EQ(reader.get(1)->a, 10) << "a writer that is refused changes nothing";
  options.replaceOtherSchema = true;
  NewWriter writer("t", options);
  EXPECT_EQ(writer.size(), 0u);
  writer.put(2, {20, 21, 22});
  EXPECT_TRUE(sees(reader, 2, 20));
  EXPECT_EQ(reader.get(2)->b, 21);
  EXPECT_FALSE(reader.contains(1)) << "the new writer begins with an empty table";
  EXPECT_EQ(copy.size(), 1u);
}

TEST_F(RollingUpgrade, AReaderOfTheNewRecordIsRefusedUntilTheWriterFollows) {
  auto old = std::make_unique<Writer>("t", options);
  Table::Reader<uint32_t, LargerRecord> reader("t", options);
  EXPECT_EQ(reader.state(), State::refused);
  EXPECT_TRUE(reader.wait(std::chrono::nanoseconds(0))) << "next() has something to throw";
  EXPECT_THROW(reader.next(), Table::Error);
  old.reset();
  options.replaceOtherSchema = true;
  NewWriter writer("t", options);
  writer.put(1, {10, 11, 12});
  const auto end = std::chrono::steady_clock::now() + kDeadline;
  while (!reader.contains(1) && std::chrono::steady_clock::now() < end) {
    reader.wait(std::chrono::milliseconds(50));
  }
  EXPECT_EQ(reader.get(1)->c, 12);
}

}  // namespace
}  // namespace Zorbe::Test
