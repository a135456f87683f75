// SPDX-License-Identifier: MIT
#include "core/peers.h"

#include "support/child_process.h"
#include "support/fixture.h"

#include <brask/linux/event_loop.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

/// A socket in the test's directory that processes connect to.
class PeersTest : public ZorbeTest {
 protected:
  PeersTest() {
    EXPECT_EQ(::bind(listening_.get(), address(), sizeof name_), 0);
    EXPECT_EQ(::listen(listening_.get(), 2), 0);
  }

  Descriptor connect() {
    Descriptor fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(fd.get(), address(), sizeof name_), 0);
    return fd;
  }
  int accept() { return ::accept(listening_.get(), nullptr, nullptr); }

 private:
  const sockaddr* address() {
    name_.sun_family = AF_UNIX;
    inRoot("socket").copy(name_.sun_path, sizeof name_.sun_path - 1);
    return reinterpret_cast<const sockaddr*>(&name_);
  }

  sockaddr_un name_{};
  Descriptor listening_{::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)};
};

TEST_F(PeersTest, AProcessThatGetsTheConnectionsOfAnotherIsNamed) {
  ChildProcess child("peer", [&](Channel& parent) {
    const Descriptor connection = connect();
    parent.await("end");
  });
  const Descriptor ofChild(accept());
  ASSERT_GE(ofChild.get(), 0);
  const Descriptor own = connect();
  Brask::Linux::EventLoop loop;
  ReaderKickClientSm client(handler, nullptr, accept());
  const int fd = client.fdControl->fd();
  Table::Peers peers;
  const Table::Status before = peers.look({{fd, &client}}, {});
  ASSERT_EQ(before.peers.size(), 1u);
  EXPECT_EQ(before.peers[0].pid, static_cast<uint32_t>(::getpid()));
  // The same descriptor and the same object, as after an end and a begin between two looks.
  ASSERT_EQ(::dup3(ofChild.get(), fd, O_CLOEXEC), fd);
  const Table::Status after = peers.look({{fd, &client}}, {});
  ASSERT_EQ(after.peers.size(), 1u);
  EXPECT_EQ(after.peers[0].pid, static_cast<uint32_t>(child.pid()));
  EXPECT_EQ(after.peers[0].since, after.now);
  child.send("end");
  EXPECT_EQ(child.finish(), 0);
}

// A reader that is behind at each look, and has reported in between, is not a slow one.
TEST_F(PeersTest, AReportBeginsTheTimeAgainThatAReaderHasBeenBehind) {
  const Descriptor own = connect();
  Brask::Linux::EventLoop loop;
  ReaderKickClientSm client(handler, nullptr, accept());
  const int fd = client.fdControl->fd();
  client.acknowledged = true;
  client.sequence = 5;
  Table::Peers peers;
  const Table::Status first = peers.look({{fd, &client}}, {});
  const Table::Status unchanged = peers.look({{fd, &client}}, {});
  EXPECT_EQ(unchanged.peers.at(0).since, first.now);
  EXPECT_LT(first.now, unchanged.now);
  client.sequence = 6;
  const Table::Status reported = peers.look({{fd, &client}}, {});
  EXPECT_EQ(reported.peers.at(0).state, Table::PeerState::behind);
  EXPECT_EQ(reported.peers.at(0).since, reported.now);
  EXPECT_EQ(reported.peers.at(0).reported, 6u);
}

TEST_F(PeersTest, AConnectionThatWasNotThereAtTheLookBeforeIsANewOne) {
  const Descriptor own = connect();
  Brask::Linux::EventLoop loop;
  ReaderKickClientSm client(handler, nullptr, accept());
  const int fd = client.fdControl->fd();
  Table::Peers peers;
  static_cast<void>(peers.look({{fd, &client}}, {}));
  EXPECT_EQ(peers.look({}, {}).connections, 0u);
  const Table::Status again = peers.look({{fd, &client}}, {});
  EXPECT_EQ(again.connections, 1u);
  EXPECT_EQ(again.peers.at(0).state, Table::PeerState::watcher);
  EXPECT_EQ(again.peers.at(0).since, again.now);
}

}  // namespace
}  // namespace Zorbe::Test
