// SPDX-License-Identifier: MIT
#include "core/root_watch.h"

#include "support/fixture.h"
#include "support/roles.h"

#include <brask/linux/event_loop.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::RootWatch;

class RootWatchTest : public ZorbeTest, public RootWatch::Owner {
 protected:
  void rootChanged() override { ++changes; }

  bool changesOnce() {
    changes = 0;
    return turnUntil(loop, [this] { return changes > 0; });
  }
  void settle() {
    while (loop.turn(0.0)) continue;
    changes = 0;
  }
  void makeDirectory(const std::string& name) const {
    ASSERT_EQ(::mkdir(inRoot(name).c_str(), 0755), 0);
  }

  Brask::Linux::EventLoop loop;
  unsigned changes = 0;
};

TEST_F(RootWatchTest, FollowsItsPathDownwards) {
  RootWatch watch(inRoot("a/b//"), *this);
  watch.set();
  EXPECT_TRUE(watch.isWatching());
  makeDirectory("other");
  settle();
  makeDirectory("a");
  EXPECT_TRUE(changesOnce());
  watch.set();
  settle();
  makeDirectory("a/c");
  while (loop.turn(0.0)) continue;
  EXPECT_EQ(changes, 0u) << "is no part of the path";
  makeDirectory("a/b");
  EXPECT_TRUE(changesOnce());
  watch.set();
  settle();
  for (const char* name : {"a/b/slots", "a/b/last-owner"}) {
    ASSERT_EQ(::close(::creat(inRoot(name).c_str(), 0644)), 0);
    EXPECT_TRUE(changesOnce()) << name;
    settle();
  }
  ASSERT_EQ(::chmod(inRoot("a/b").c_str(), 0700), 0);
  EXPECT_TRUE(changesOnce());
  settle();
  ASSERT_EQ(::close(::creat(inRoot("a/b/other").c_str(), 0644)), 0);
  while (loop.turn(0.0)) continue;
  EXPECT_EQ(changes, 0u) << "is no file of a table";
}

TEST_F(RootWatchTest, AFileIsNoPartOfThePath) {
  ASSERT_EQ(::close(::creat(inRoot("a").c_str(), 0644)), 0);
  RootWatch watch(inRoot("a/b"), *this);
  watch.set();
  settle();
  EXPECT_TRUE(watch.isWatching());
  ASSERT_EQ(::unlink(inRoot("a").c_str()), 0);
  makeDirectory("a");
  EXPECT_TRUE(changesOnce());
}

TEST_F(RootWatchTest, BeginsAtTheTopmostDirectory) {
  for (const char* path : {"/", "///", "/~", "/~/t", "/~none/t"}) {
    RootWatch watch(path, *this);
    watch.set();
    while (loop.turn(0.0)) continue;
    EXPECT_TRUE(watch.isWatching()) << path;
  }
}

TEST_F(RootWatchTest, EndsWithItsDirectoryAndIsSetAgain) {
  makeDirectory("a");
  RootWatch watch(inRoot("a/b"), *this);
  watch.set();
  EXPECT_TRUE(watch.isWatching());
  ASSERT_EQ(::rmdir(inRoot("a").c_str()), 0);
  EXPECT_TRUE(turnUntil(loop, [&] { return !watch.isWatching(); }));
  EXPECT_GT(changes, 0u);
  watch.set();
  EXPECT_TRUE(watch.isWatching());
  settle();
  makeDirectory("a");
  EXPECT_TRUE(changesOnce());
}

TEST_F(RootWatchTest, WatchesTheRootOfAllWhenNothingElseIsThere) {
  RootWatch watch("/no-such-directory-of-zorbe/a", *this);
  watch.set();
  EXPECT_TRUE(watch.isWatching());
  RootWatch ofAll("///", *this);
  ofAll.set();
  EXPECT_TRUE(ofAll.isWatching());
}

TEST_F(RootWatchTest, IsSetAgainAfterAnError) {
  RootWatch watch(inRoot("a"), *this);
  watch.set();
  watch.inotifyError("events were lost");
  EXPECT_FALSE(watch.isWatching());
  EXPECT_EQ(changes, 1u);
  watch.set();
  EXPECT_TRUE(watch.isWatching());
}

}  // namespace
}  // namespace Zorbe::Test
