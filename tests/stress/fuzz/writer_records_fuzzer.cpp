// SPDX-License-Identifier: MIT
//
// Hostile readers: what they send, in which pieces, when they disconnect, and which of the
// writer's calls fail. The writer has to behave as a small model.
#include "stress/fuzz/connection.h"
#include "stress/fuzz/fuzzer.h"
#include "support/kick_fixture.h"

#include <array>
#include <cstring>

namespace Zorbe::Test::Fuzz {
namespace {

// The name is taken once; each input's writer listens on a duplicate.
const TestRoot kRoot;
const std::string kPath = kRoot / "t";
const RawPeer kBound = RawPeer::bind(kPath);

/// A reader, and what the writer has to know about it.
struct Peer {
  RawPeer socket;
  size_t control = 0;  // the number of the writer's control
  int fd = -1;         // the writer's descriptor, -1 when it has none
  Connection model;
  uint64_t sequence = 0;
  bool acknowledged = false;
  bool asleep = false;
};

class WriterCase {
 public:
  explicit WriterCase(Input& input) : input_(input) {
    if (input.flag()) handler_.setMaxLevel(0);
    writer_->writerSequence = input.flag() ? input.number<uint64_t>() : input.byte();
    listen();
  }

  ~WriterCase() {
    writer_.reset();
    for (Peer& peer : peers_) {
      if (!peer.socket.isOpen()) continue;
      EXPECT_TRUE(peer.socket.isPeerClosed());
      takeKicks(peer);
    }
  }

  void run() {
    while (!input_.atEnd()) {
      step(input_.below(8), peers_[input_.below(peers_.size())]);
      compare();
    }
  }

 private:
  void listen() {
    const Fault::Bypass bypass;
    writer_->kickSocket = ::dup(kBound.fd());
    writer_->kickSocketCreated = true;
    writer_->doEnableListen();
  }

  void step(unsigned what, Peer& peer) {
    switch (what) {
      case 0:
        return connect(peer);
      case 1:
        return send(peer, input_.text());
      case 2:
        return send(peer, bytesOf(input_.byte() + (input_.flag() ? writer_->writerSequence : 0)));
      case 3:
        return hangUp(peer);
      case 4:
        return arrive(peer);
      case 5:
        return failWhileArriving(peer);
      case 6:
        return publish();
      default:
        return takeKicks(peer);
    }
  }

  void connect(Peer& peer) {
    if (peer.socket.isOpen() || peer.fd >= 0) return;
    peer = Peer();
    peer.socket = RawPeer::connect(kPath);
    if (input_.flag()) refuseOne();
    platform_.fd(0).fire();
    peer.control = platform_.fdCount() - 1;
    peer.fd = platform_.fd(peer.control).fd();
    ++changes_;
  }

  void refuseOne() {
    Fault::arm("accept", 1, EMFILE);
    expectFailure("WriterKickSm::handleReaderConnection() accept() sd:" +
                  std::to_string(writer_->kickSocket) + " " + std::strerror(EMFILE));
    platform_.fd(0).fire();
  }

  void send(Peer& peer, const std::string& record) {
    if (!peer.socket.isOpen() || peer.fd < 0) return;
    peer.socket.send(record);
    peer.model.arrive(record);
  }

  static void hangUp(Peer& peer) {
    if (!peer.socket.isOpen()) return;
    peer.model.hangUp();
    peer.socket.close();
  }

  void failWhileArriving(Peer& peer) {
    peer.model.failReceive(input_, peer.fd >= 0, [&] { arrive(peer); });
  }

  void arrive(Peer& peer) {
    if (peer.fd < 0) return;
    FakeFdControl& control = platform_.fd(peer.control);
    expect(peer);
    control.fire();
    EXPECT_EQ(control.isDeleted(), peer.fd < 0);
    if (peer.fd < 0 && peer.socket.isOpen()) EXPECT_TRUE(peer.socket.isPeerClosed());
  }

  // What handleReaderData has to do.
  void expect(Peer& peer) {
    const std::string prefix = dataOf(peer);
    std::string record;
    uint64_t report = 0;
    unsigned reports = 0;
    long got;
    while ((got = peer.model.receive(record)) >= 8) {
      std::memcpy(&report, record.data(), sizeof report);
      ++reports;
    }
    if (got > 0) {
      expectFailure(prefix + " recv() bad length " + std::to_string(got) +
                    ", disconnecting reader");
    } else if (got < 0 && got != -EAGAIN) {
      expectFailure(prefix + " recv() error: " + std::strerror(static_cast<int>(-got)));
    }
    if (got != -EAGAIN) return expectEnd(peer);
    if (reports != 0) expectAnswer(peer, report);
  }

  void expectAnswer(Peer& peer, uint64_t report) {
    const std::string bad = dataOf(peer) + " bad reader sequence:" + std::to_string(report);
    const uint64_t published = writer_->writerSequence;
    if (report < peer.sequence) {
      expectFailure(bad + " previous sequence:" + std::to_string(peer.sequence) +
                    ", disconnecting reader");
      return expectEnd(peer);
    }
    if (report > published) {
      expectFailure(bad + " writer sequence:" + std::to_string(published));
      return expectEnd(peer);
    }
    peer.sequence = report;
    peer.asleep = peer.asleep || report == published;
    if (report < published || !peer.acknowledged) expectKick(peer);
    peer.acknowledged = true;
  }

  void expectKick(Peer& peer) {
    const int error = peer.model.send("#");
    if (error == 0) {
      ++kicks_;
      return;
    }
    expectFailure("ReaderKickClientSm::kick() socket:" + std::to_string(peer.fd) + " send() " +
                  std::strerror(error));
  }

  void expectEnd(Peer& peer) {
    peer.fd = -1;
    peer.asleep = false;
    ++changes_;
  }

  void publish() {
    writer_->writerSequence += input_.byte();
    for (const auto& [fd, client] : writer_->sleepingReaders) {
      for (Peer& peer : peers_) {
        if (peer.fd == fd) expectKick(peer);
      }
    }
    for (Peer& peer : peers_) peer.asleep = false;
    writer_->doKickSleepers();
  }

  static void takeKicks(Peer& peer) {
    if (!peer.socket.isOpen()) return;
    EXPECT_EQ(allReceived(peer.socket), peer.model.takeSent());
  }

  void compare() {
    size_t awake = 0;
    size_t asleep = 0;
    uint64_t lowest = std::numeric_limits<uint64_t>::max();
    for (const Peer& peer : peers_) {
      if (peer.fd < 0) continue;
      ++awake;
      lowest = std::min(lowest, peer.sequence);
      const auto known = writer_->readers.find(peer.fd);
      ASSERT_NE(known, writer_->readers.end());
      EXPECT_EQ(known->second->sequence, peer.sequence);
      EXPECT_EQ(known->second->acknowledged, peer.acknowledged);
      EXPECT_EQ(writer_->sleepingReaders.count(peer.fd), peer.asleep ? 1u : 0u);
      asleep += peer.asleep ? 1 : 0;
    }
    EXPECT_EQ(writer_->readers.size(), awake);
    EXPECT_EQ(writer_->sleepingReaders.size(), asleep);
    EXPECT_EQ(writer_->lowestSequence(), lowest);
    EXPECT_EQ(writer_->kickCount, kicks_);
    EXPECT_EQ(reports_, changes_);
    EXPECT_EQ(handler_.texts(0), failures_);
    handler_.clear();
    failures_.clear();
  }

  static std::string dataOf(const Peer& peer) {
    return "ReaderKickClientSm::handleReaderData() socket:" + std::to_string(peer.fd);
  }

  void expectFailure(const std::string& text) { failures_.push_back(text); }

  Input& input_;
  FailureHandler handler_;
  FakePlatform platform_;
  RootPath rootPath_{handler_, "t", false};
  std::unique_ptr<TestWriter> writer_ = makeWriter();
  std::array<Peer, 4> peers_;
  std::vector<std::string> failures_;
  uint64_t kicks_ = 0;
  size_t changes_ = 0;
  size_t reports_ = 0;

  std::unique_ptr<TestWriter> makeWriter() {
    auto writer = std::make_unique<TestWriter>(platform_, handler_, rootPath_);
    writer->onReadersChanged = [this] { ++reports_; };
    return writer;
  }
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(WriterCase)
