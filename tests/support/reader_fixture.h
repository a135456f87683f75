// SPDX-License-Identifier: MIT
//
// A table's reader as a client derives it.
#pragma once

#include "support/kick_fixture.h"

#include <fcntl.h>
#include <unistd.h>
#include <zorbe/counters.h>

namespace Zorbe::Test {

class TestReader : public ReaderKickSm {
 public:
  TestReader(FakePlatform& fakes, Brask::Platform::DebugHandler& debugHandler, const RootPath& path,
             Reader::Counters& readerCounters)
      : ReaderKickSm(debugHandler, path, readerCounters), fakes_(fakes) {}

  uint64_t readerSequence() override {
    fakes_.note("readerSequence");
    if (onReaderSequence) onReaderSequence();
    return consumed;
  }
  void writerConnectionChanged() override {
    fakes_.note(std::string("writerConnectionChanged ") + (connected ? "up" : "down") +
                (acknowledged ? " acknowledged" : ""));
    if (onConnectionChanged) onConnectionChanged();
  }
  void writerAcknowledged() override {
    fakes_.note("writerAcknowledged");
    if (onAcknowledged) onAcknowledged();
  }
  std::string readerName() const override {
    ADD_FAILURE() << "nothing of the library asks for the name";
    return "reader";
  }

  using ReaderKickSm::acknowledged;
  using ReaderKickSm::connected;
  using ReaderKickSm::conquerAgain;
  using ReaderKickSm::enabled;
  using ReaderKickSm::initialized;
  using ReaderKickSm::notificationsDisabled;
  using ReaderKickSm::sentSequence;

  uint64_t consumed = 0;
  Hook onReaderSequence;
  Hook onConnectionChanged;
  Hook onAcknowledged;

 private:
  FakePlatform& fakes_;
};

/// A reader, and a raw writer once `startWriter` is called.
class ReaderTest : public KickTest {
 protected:
  ReaderTest() { forget(); }

  void startWriter() { listening = RawPeer::listen(table); }

  /// The reader is connected to a raw writer; the messages and calls so far are dropped.
  void connect() {
    if (!listening.isOpen()) startWriter();
    reader->doConnect();
    writerEnd = listening.accept();
    ASSERT_TRUE(writerEnd.isOpen());
    forget();
  }

  /// The writer kicks, and the loop reports it.
  void kick(int times = 1) {
    while (times-- > 0) writerEnd.send("#");
    control().fire();
  }

  /// The messages of a connect that fails.
  std::vector<Message> failedConnect(const std::string& fd, int error) const {
    return {{5, "ReaderKickSm::doConnect()"},
            {0, "ReaderKickSm::doConnect() connect() socket:" + fd + " " + table +
                    " failed: " + reason(error)}};
  }

  FakeFdControl& control() { return platform.fd(0); }
  FakeTimerControl& timer() { return platform.timer(0); }
  std::string number() { return std::to_string(control().fd()); }

  /// The number that the connection's descriptor gets: that of the caller's network
  /// namespace is open before it.
  static int nextButOne() {
    const Fault::Bypass bypass;
    const int first = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int second = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(::close(first), 0);
    EXPECT_EQ(::close(second), 0);
    return second;
  }

  RawPeer listening;
  RawPeer writerEnd;
  Reader::Counters counters = {};
  std::unique_ptr<TestReader> reader =
      std::make_unique<TestReader>(platform, handler, root, counters);
};

}  // namespace Zorbe::Test
