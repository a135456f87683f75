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
