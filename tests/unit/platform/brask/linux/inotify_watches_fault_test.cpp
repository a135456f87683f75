// SPDX-License-Identifier: MIT
//
// Which calls are made for the kernel's watches, and which are not.
#include "unit/platform/brask/linux/inotify_fixture.h"
#include "unit/platform/brask/linux/loop_fault_fixture.h"

using namespace LoopTesting;
namespace Fault = Zorbe::Test::Fault;

namespace {

class InotifyWatchesTest : public WithFaults<InotifyTest> {};

}  // namespace

TEST_F(InotifyWatchesTest, NothingIsAskedOfTheKernelForAWatchThatItHasEnded) {
  const std::string doomed = directory.make("doomed");
  InotifyProbe one, two;
  one.control->addWatch(doomed, IN_CREATE);
  two.control->addWatch(doomed, IN_ATTRIB);
  remove(doomed);
  Fault::reset();
  settle();
  EXPECT_EQ("deleted", one.told.back());
  EXPECT_EQ("deleted", two.told.back());
  EXPECT_EQ(0u, Fault::calls("inotify_add_watch"));
  EXPECT_EQ(0u, Fault::calls("inotify_rm_watch"));
}

TEST_F(InotifyWatchesTest, AReadThatBringsNothingIsTheLastBeforeAWatchIsAdded) {
  InotifyProbe first, second;
  first.control->addWatch(directory.path, IN_CREATE);
  directory.make("one");
  Fault::reset();
  Fault::armResult("read", 1, 0);
  errno = EIO;  // which nobody reported
  second.control->addWatch(directory.path, IN_CREATE);
  EXPECT_EQ(1u, Fault::calls("read"));
  settle();
  EXPECT_EQ(Told{"changed one"}, first.told);
}
