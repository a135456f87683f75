// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include "process/process_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

class WriterLockProcesses : public ProcessTest {
 protected:
  Child startHolder() {
    Child holder = start("holder", [](Channel& parent) {
      ProcessContext context;
      const int lock = Util::acquireWriterLock(context.handler, context.root);
      parent.send("locked");
      parent.await("release");
      EXPECT_EQ(Util::releaseWriterLock(context.handler, lock), 0);
      parent.send("released");
      parent.await("leave");
    });
    holder->await("locked");
    return holder;
  }

  // Takes the lock and gives it back.
  static void takeLock(Brask::Platform::DebugHandler& handler, const RootPath& root) {
    EXPECT_EQ(Util::releaseWriterLock(handler, Util::acquireWriterLock(handler, root)), 0);
  }

  std::string ownExecutable() { return Util::readOwner(handler, static_cast<unsigned>(getpid())); }
};

TEST_F(WriterLockProcesses, TheNextWriterGetsTheLockOfAKilledOneAtOnce) {
  const RootPath root(handler, "quotes", true);
  for (int round = 0; round < 20; ++round) {
    const Child holder = startHolder();
    holder->kill();
    EXPECT_NO_THROW(takeLock(handler, root)) << "round " << round;
  }
}

TEST_F(WriterLockProcesses, TheNextWriterGetsAReleasedLockWhileTheLastOneContinues) {
  const RootPath root(handler, "quotes", true);
  const Child holder = startHolder();
  holder->send("release");
  holder->await("released");
  EXPECT_NO_THROW(takeLock(handler, root));
  leave(holder);
}

TEST_F(WriterLockProcesses, ARefusedWriterLearnsWhoHoldsTheLock) {
  handler.expectFailures();
  const RootPath root(handler, "quotes", true);
  const Child holder = startHolder();
  const std::string pid = std::to_string(holder->pid());
  try {
    takeLock(handler, root);
    ADD_FAILURE() << "two writers";
  } catch (const DuplicateWriterException& refusal) {
    EXPECT_EQ(refusal.pid, static_cast<uint32_t>(holder->pid()));
    EXPECT_EQ(refusal.owner, ownExecutable());
    EXPECT_THAT(refusal.lastOwner, StartsWith(ownExecutable() + ":" + pid + " cmdline: '"));
    EXPECT_THAT(refusal.what(),
                AllOf(HasSubstr("duplicate writer detected " + ownExecutable() + ":" + pid + " "),
                      HasSubstr("lastOwner:" + refusal.lastOwner),
                      HasSubstr(" /proc/" + pid + "/stat: " + pid + " (")));
  }
}

}  // namespace
}  // namespace Zorbe::Test
