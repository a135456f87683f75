// SPDX-License-Identifier: MIT
//
// A pass that ends with an exception reports nothing. The writer has taken the reader off its
// sleepers when it kicked it, and waits for that report: no kick comes any more, however much is
// published. The client has to run a pass of its own, or to connect again.
#include <gmock/gmock.h>
#include <zorbe/exceptions.h>

#include "process/process_fixture.h"

namespace Zorbe::Test {
namespace {

/// A writer and a reader on one loop, which are in step at first. The pass of the next publish
/// throws.
class UnreportedPass : public ProcessTest {
 protected:
  UnreportedPass() : root(handler, "quotes", true) {
    handler.setMaxLevel(0);
    writer.open();
    reader.doConnect();
    settle();
    EXPECT_EQ(writer.sleepingReaders.size(), 1u);
  }

  void settle() {
    while (loop.turn(0)) continue;
  }

  /// Publishes once, and the reader's pass throws `exception`.
  template <class Exception>
  void publishToAThrowingPass(const Exception& exception) {
    reader.passed = [this, exception] {
      if (++passes == 1) throw exception;
    };
    writer.publish();
  }

  void expectNoPassHoweverMuchIsPublished() {
    for (int i = 0; i < 100; ++i) {
      writer.publish();
      settle();
    }
    EXPECT_TRUE(reader.isConnected());
    EXPECT_EQ(passes, 1u);
    EXPECT_EQ(reader.at(), 1u);
  }

  void expectInStep() {
    settle();
    EXPECT_EQ(reader.at(), writer.published());
    writer.publish();
    settle();
    EXPECT_EQ(reader.at(), writer.published()) << "it is kicked again";
    EXPECT_EQ(writer.sleepingReaders.size(), 1u);
  }

  Brask::Linux::EventLoop loop;
  RootPath root;
  TableWriter writer{handler, root, table};
  TableReader reader{handler, root, table};
  unsigned passes = 0;
};

TEST_F(UnreportedPass, IsFollowedByNoKickAfterCorruption) {
  handler.expectFailures();
  publishToAThrowingPass(CorruptionDetectedException("slot 7"));
  settle();
  expectNoPassHoweverMuchIsPublished();
}

TEST_F(UnreportedPass, IsFollowedByNoKickAfterAnyOtherException) {
  publishToAThrowingPass(std::runtime_error("no memory"));
  EXPECT_THROW(settle(), std::runtime_error);
  expectNoPassHoweverMuchIsPublished();
}

TEST_F(UnreportedPass, IsMadeUpForByAPassOfTheClientsOwn) {
  handler.expectFailures();
  publishToAThrowingPass(CorruptionDetectedException("slot 7"));
  settle();
  TimerProbe pause([this] { reader.doConquer(); });
  pause.control->start(0.0);
  expectInStep();
}

TEST_F(UnreportedPass, IsMadeUpForByAnotherConnection) {
  handler.expectFailures();
  publishToAThrowingPass(CorruptionDetectedException("slot 7"));
  settle();
  reader.doCloseWriterConnection(true);
  reader.doConnect();
  expectInStep();
}

}  // namespace
}  // namespace Zorbe::Test
