// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <nsutil/nsutil.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cstdlib>

#include "process/process_fixture.h"
#include "support/noncopyable.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

/// The namespace of all tables of the test, for processes in any namespace.
class WellKnownNamespace : private NonCopyable {
 public:
  WellKnownNamespace() {
    made_ = ip("netns add " + name_);
    DEFAULT_NS = name_.c_str();
  }
  ~WellKnownNamespace() {
    DEFAULT_NS = before_;
    EXPECT_TRUE(!made_ || ip("netns del " + name_)) << name_;
  }

  bool made() const { return made_; }

 private:
  static bool ip(const std::string& arguments) {
    return std::system(("ip " + arguments).c_str()) == 0;
  }

  const char* before_ = DEFAULT_NS;
  std::string name_ = "zorbe-process-test-" + std::to_string(getpid());
  bool made_ = false;
};

class NetworkNamespaces : public ProcessTest {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "needs root: makes network namespaces";
    wellKnown = std::make_unique<WellKnownNamespace>();
    if (!wellKnown->made()) GTEST_SKIP() << "this root may not make network namespaces";
  }

  // Starts a child in a network namespace of its own.
  Child startElsewhere(const std::string& name, const ChildProcess::Role& role) {
    return start(name, [role](Channel& parent) {
      ASSERT_TRUE(enterOwnNetworkNamespace());
      role(parent);
    });
  }

  Child startWriterElsewhere() {
    Child writer = startElsewhere("writer", [this](Channel& parent) { runWriter(parent, table); });
    writer->await("listening");
    return writer;
  }

  // Tries to become the writer and sends how it was refused.
  static void runSecondWriter(Channel& parent) {
    ProcessContext context;
    try {
      EXPECT_EQ(Util::releaseWriterLock(context.handler,
                                        Util::acquireWriterLock(context.handler, context.root)),
                0);
      parent.send("two writers");
    } catch (const DuplicateWriterException& refusal) {
      EXPECT_THAT(refusal.what(), HasSubstr("duplicate writer detected " + refusal.owner + ":" +
                                            std::to_string(refusal.pid) + " " + context.root.path));
      EXPECT_THAT(refusal.lastOwner, HasSubstr(" cmdline: '"));
      parent.send("refused by " + std::to_string(refusal.pid) + ":" + refusal.owner);
    }
  }

  std::unique_ptr<WellKnownNamespace> wellKnown;
};

TEST_F(NetworkNamespaces, AWriterOfAnotherNamespaceIsRefusedWithoutAName) {
  const Child writer = startWriter();
  const Child second = startElsewhere("second writer", runSecondWriter);
  second->await("refused by 0:");
  EXPECT_EQ(second->finish(), 0);
  leave(writer);
}

TEST_F(NetworkNamespaces, ReadersFollowWritersOfOtherNamespaces) {
  auto followers = startFollowers(2);
  followers.push_back(startElsewhere("follower elsewhere",
                                     [this](Channel& parent) { runFollower(parent, table); }));
  for (int round = 1; round <= 3; ++round) {
    const Child writer = startWriterElsewhere();
    publishTo(writer, followers, 3);
    writer->kill();
    awaitDeparture(followers);
  }
  leave(followers);
}

}  // namespace
}  // namespace Zorbe::Test
