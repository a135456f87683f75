// SPDX-License-Identifier: MIT
#include "core/reader_connection.h"

#include "support/fixture.h"
#include "support/roles.h"
#include "support/table.h"

#include <brask/linux/event_loop.h>

namespace Zorbe::Test {
namespace {

class ReaderConnectionTest : public ZorbeTest, public Table::ReaderConnection::Owner {
 protected:
  ReaderConnectionTest() { writer.open(); }

  void connectionChanged() override { ++changes; }
  void kicked() override { ++kicks; }

  Brask::Linux::EventLoop loop;
  SharedTable table;
  TableWriter writer{handler, RootPath(handler, "t", true), table};
  Reader::Counters counters{};
  Table::ReaderConnection connection{handler, RootPath(handler, "t", false), counters, *this};
  unsigned changes = 0;
  unsigned kicks = 0;
};

TEST_F(ReaderConnectionTest, ReportsEachPositionOnce) {
  connection.report(0);  // not connected yet
  EXPECT_EQ(connection.descriptor(), -1);
  ASSERT_TRUE(connection.tryConnect());
  ASSERT_TRUE(connection.tryConnect()) << "it is connected";
  EXPECT_EQ(changes, 1u);
  writer.publish(3);
  connection.report(3);
  connection.report(3);
  EXPECT_TRUE(turnUntil(loop, [this] { return writer.allCaughtUp(); }));
  writer.publish();
  EXPECT_TRUE(turnUntil(loop, [this] { return kicks == 1; }));
  EXPECT_EQ(connection.reported(), 3u);
}

// A pass of the base class reports what the program has read.
TEST_F(ReaderConnectionTest, IsAReaderOfTheLibrary) {
  ASSERT_TRUE(connection.tryConnect());
  writer.publish(3);
  connection.report(3);
  ReaderKickSm& base = connection;
  EXPECT_EQ(base.readerSequence(), 3u);
  EXPECT_EQ(base.readerName(), "t");
}

}  // namespace
}  // namespace Zorbe::Test
