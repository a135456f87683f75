// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <sys/socket.h>
#include <zorbe/util.h>

#include "process/process_fixture.h"
#include "support/raw_peer.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr unsigned kGoodReaders = 3;

/// A writer and readers that behave, and peers, run by the test itself, that do not.
class HostilePeers : public ProcessTest {
 protected:
  HostilePeers() : root(handler, "quotes", true), writer(startWriter()) {
    readers = startReaders(kGoodReaders);
    publishTo(writer, readers, 5);
    caughtUp(kGoodReaders);
  }

  /// Blocks in `send` when the writer does not keep up.
  RawPeer connect() {
    Descriptor socket(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET, 0));
    RawPeer peer = RawPeer::connect(root.path, std::move(socket));
    EXPECT_TRUE(peer.isOpen());
    return peer;
  }

  // A peer that the writer has accepted and kicked, as one does that behaves.
  RawPeer acknowledged(uint64_t sequence) {
    RawPeer peer = connect();
    peer.report(sequence);
    EXPECT_TRUE(peer.awaitKick());
    return peer;
  }

  void caughtUp(size_t connected) {
    const std::string words = "caught up " + std::to_string(connected);
    writer->send(words);
    writer->await(words);
  }

  void connected(size_t count) {
    const std::string words = "readers " + std::to_string(count);
    writer->send(words);
    writer->await(words);
  }

  void expectGoodReadersServed() { publishTo(writer, readers); }

  void leaveAll() {
    leave(readers);
    leave(writer);
  }

  RootPath root;
  Child writer;
  std::vector<Child> readers;
};

TEST_F(HostilePeers, MessagesOfZeroToSevenBytesEndTheConnection) {
  for (size_t length = 0; length < 8; ++length) {
    RawPeer peer = connect();
    peer.send(std::string(length, '\0'));
    EXPECT_TRUE(peer.awaitClose()) << length << " bytes";
    expectGoodReadersServed();
  }
  EXPECT_THAT(writer->log(), HasSubstr("recv() bad length 7, disconnecting reader"));
  leaveAll();
}

TEST_F(HostilePeers, OfALongerMessageTheFirstEightBytesCount) {
  for (const size_t extra : {1u, 8u, 1000u}) {
    RawPeer honest = connect();
    honest.send(bytesOf(published) + std::string(extra, '\xff'));
    EXPECT_TRUE(honest.awaitKick());
    RawPeer liar = connect();
    liar.send(bytesOf(published + 1) + std::string(extra, '\0'));
    EXPECT_TRUE(liar.awaitClose());
    expectGoodReadersServed();
  }
  leaveAll();
}

TEST_F(HostilePeers, AFallingSequenceEndsTheConnection) {
  RawPeer peer = acknowledged(4);
  peer.report(3);
  EXPECT_TRUE(peer.awaitClose());
  expectGoodReadersServed();
  EXPECT_THAT(writer->log(), HasSubstr("bad reader sequence:3 previous sequence:4"));
  leaveAll();
}

TEST_F(HostilePeers, ASequenceBeyondTheWritersEndsTheConnection) {
  for (const uint64_t sequence : {published + 1, ~uint64_t{0}, uint64_t{1} << 63}) {
    RawPeer peer = connect();
    peer.report(sequence);
    EXPECT_TRUE(peer.awaitClose()) << sequence;
    expectGoodReadersServed();
  }
  leaveAll();
}

TEST_F(HostilePeers, SilentConnectionsDelayNoOtherReader) {
  std::vector<RawPeer> silent;
  for (size_t i = 1; i <= 50; ++i) {
    silent.push_back(connect());
    connected(kGoodReaders + i);
  }
  for (int i = 0; i < 10; ++i) expectGoodReadersServed();
  silent.clear();
  connected(kGoodReaders);
  caughtUp(kGoodReaders);
  leaveAll();
}

// The kicks that answer the flood are not read; those that do not fit are only logged.
TEST_F(HostilePeers, AFloodOfReportsDelaysNoOtherReader) {
  RawPeer peer = acknowledged(1);
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < 1000; ++i) peer.report(1);
    expectGoodReadersServed();
  }
  peer.report(published);
  caughtUp(kGoodReaders + 1);
  leaveAll();
}

TEST_F(HostilePeers, AFloodOfConnectionsDelaysNoOtherReader) {
  for (int round = 0; round < 10; ++round) {
    for (int i = 0; i < 100; ++i) connect();
    for (int i = 0; i < 100; ++i) connect().report(1);
    expectGoodReadersServed();
  }
  connected(kGoodReaders);
  EXPECT_THAT(writer->log(), Not(HasSubstr("accept()")));
  leaveAll();
}

}  // namespace
}  // namespace Zorbe::Test
