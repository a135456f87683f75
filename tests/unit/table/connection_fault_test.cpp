// SPDX-License-Identifier: MIT
//
// The reader's end of the connection to a writer.
#include "unit/table/in_loop_fixture.h"

#include "core/reader_connection.h"
#include "core/writer_link.h"

#include "fault/fault.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

class ConnectionTest : public InLoop, public Table::ReaderConnection::Owner {
 protected:
  ConnectionTest() : root_(handler, "t", false) { root_.path = inRoot("t"); }

  void connectionChanged() override { ++changes; }
  void kicked() override { ++kicks; }

  int connect() { return Table::connectToWriter(handler, root_); }

  RootPath root_;
  Zorbe::Reader::Counters counters_{};
  unsigned changes = 0;
  unsigned kicks = 0;
};

TEST_F(ConnectionTest, ADescriptorMayBeZero) {
  const Writer writer("t", options);
  auto connection = std::make_unique<Table::ReaderConnection>(handler, root_, counters_, *this);
  const int input = ::fcntl(0, F_DUPFD_CLOEXEC, 3);
  ASSERT_EQ(::close(0), 0);
  Fault::arm("open", 1, ENOENT)
      .onPath("/proc/self/ns/net");  // nothing else is opened before the socket
  EXPECT_TRUE(connection->tryConnect());
  EXPECT_EQ(connection->descriptor(), 0);
  EXPECT_TRUE(connection->isConnected());
  EXPECT_EQ(changes, 1u);
  EXPECT_TRUE(connection->tryConnect());  // it is
  EXPECT_EQ(changes, 1u);
  connection.reset();
  EXPECT_EQ(::dup2(input, 0), 0);
  EXPECT_EQ(::close(input), 0);
}

TEST_F(ConnectionTest, NeitherWaitsNorIsInherited) {
  const Writer writer("t", options);
  const int fd = connect();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(::close(fd), 0);
}

TEST_F(ConnectionTest, EachFailingCallIsNoConnection) {
  const Writer writer("t", options);
  for (const char* call : {"socket", "fcntl", "connect"}) {
    for (unsigned occurrence = 1; occurrence <= (call == std::string("fcntl") ? 3u : 1u);
         ++occurrence) {
      handler.clear();
      Fault::arm(call, occurrence, ENOMEM);
      EXPECT_EQ(connect(), -1) << call;
      ASSERT_FALSE(handler.messages().empty());
      EXPECT_THAT(handler.messages().back().text,
                  testing::StartsWith("Table::connectToWriter() " + root_.path +
                                      ": Cannot allocate memory"));
    }
  }
}

TEST_F(ConnectionTest, WithoutAWriterThereIsNone) {
  Table::ReaderConnection connection(handler, root_, counters_, *this);
  EXPECT_FALSE(connection.tryConnect());
  EXPECT_FALSE(connection.isConnected());
  EXPECT_EQ(changes, 0u);
}

}  // namespace
}  // namespace Zorbe::Test
