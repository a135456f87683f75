// SPDX-License-Identifier: MIT
#include "unit/src/mounter/mounter_fixture.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class MounterSmFaultTest : public FakePlatformTest {
 protected:
  MounterSmFaultTest() { handler.clobberErrno(EXDEV); }

  void mount() {
    mounter = std::make_unique<Mounter>(handler, "quotes", &client);
    handler.clear();
    platform.takeCalls();
  }

  const std::string path = inRoot("quotes");
  Client client{platform};
  std::unique_ptr<Mounter> mounter;
};

TEST_F(MounterSmFaultTest, AnUnknownWorkingDirectoryIsAnException) {
  ASSERT_EQ(setenv("SHMEM_ROOT", "relative", 1), 0);
  Fault::arm("getcwd", 1, ENOENT);
  handler.expectFailures();
  EXPECT_THROW(mount(), Brask::InvalidInitializeException);
  EXPECT_EQ(handler.messages().front().text,
            "RootPath::RootPath() gwtcwd() failed: No such file or directory");
  EXPECT_THAT(platform.calls(), ElementsAre("inotify#0 create", "inotify#0 delete"));
}

TEST_F(MounterSmFaultTest, ARootThatCannotBeOpenedToAllIsWatchedAllTheSame) {
  Fault::arm("chmod", 1, EPERM, 2);
  handler.expectFailures();
  mount();
  platform.inotify(0).deleted();
  EXPECT_THAT(platform.calls(),
              ElementsAre("inotify#0 addWatch " + path + " 0x208", "rootChanged watch deleted"));
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, "RootPath::RootPath() chmod() error " + path +
                                                        ": Operation not permitted"),
                                          Logged(2, "RootPath::RootPath() rootpath is: " + path)));
}

TEST_F(MounterSmFaultTest, ARootFoundInPlaceAfterADeletionIsWatched) {
  mount();
  platform.failMkpath(EEXIST);
  platform.inotify(1).changed("quotes");
  EXPECT_THAT(platform.calls(),
              ElementsAre("inotify#0 addWatch " + path + " 0x208", "rootChanged watch deleted",
                          "inotify#1 addWatch " + rootPath() + " 0x2c0"));
}

}  // namespace
}  // namespace Zorbe::Test
