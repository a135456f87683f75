// SPDX-License-Identifier: MIT
#include "unit/src/sockets/sockets_fixture.h"

#include <sys/stat.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class OwnerDiscoveryFaultTest : public SocketsTest {
 protected:
  OwnerDiscoveryFaultTest() { handler.clobberErrno(EXDEV); }

  unsigned int find() {
    handler.clear();
    return Util::readOwnerPid(handler, root, owner);
  }

  std::string seenThrough(const std::string& process) const {
    return "/proc/" + process + "/fd/" + std::to_string(held);
  }

  size_t messages(int level, const std::string& text) const {
    const auto all = handler.texts(level);
    return static_cast<size_t>(std::count(all.begin(), all.end(), text));
  }

  const std::string root = inRoot("quotes");
  const std::string self = std::to_string(getpid());
  TableSocket table{root};
  int held = keep(RawPeer::bind(root).release());
  std::string owner = "unchanged";
};

TEST_F(OwnerDiscoveryFaultTest, AListThatCannotBeReadIsPassedOverInSilence) {
  Fault::arm("fopen", 1, EACCES).onPath("/proc/net/unix");
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(owner, "unchanged");
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(2, testing::StartsWith("Util::createSockaddr()"))));
}

TEST_F(OwnerDiscoveryFaultTest, AReadErrorEndsTheList) {
  Fault::arm("read", 1, EIO).onPath("/proc/" + self + "/net/unix");
  EXPECT_EQ(find(), 0u);
  EXPECT_THAT(handler.texts(5), ElementsAre("Util::readOwnerPid() "));
}

TEST_F(OwnerDiscoveryFaultTest, NoProcMeansAnException) {
  Fault::arm("opendir", 1, ENFILE).onPath("/proc");
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { find(); }), "Couldn't open /proc");
  EXPECT_THAT(handler.texts(1),
              ElementsAre("DirNode::DirNode() failed to open /proc errno: Too many open files in "
                          "system"));
  EXPECT_THAT(handler.texts(0), IsEmpty());
  EXPECT_EQ(owner, "unchanged");
}

TEST_F(OwnerDiscoveryFaultTest, WhatCannotBeLookedAtIsNotTheSocket) {
  Fault::arm("stat", 1, ENOENT, Fault::kForever);
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(owner, "unchanged");
}

TEST_F(OwnerDiscoveryFaultTest, AHolderOfPidZeroDoesNotEndTheSearch) {
  Fault::arm("opendir", 1, EACCES).onPath("/proc/self/fd");
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(messages(5, "DirNode::DirNode() failed to open /proc/self/fd errno: Permission denied"),
            1u);
  EXPECT_EQ(messages(5,
                     "DirNode::readEntry() cannot read /proc/self/fd because the directory is not "
                     "open"),
            1u);
  EXPECT_EQ(messages(1,
                     "Util::readOwnerPid() could not convert  pid directory string "
                     "\"thread-self\" to U32"),
            1u);
  EXPECT_EQ(messages(5, "Util::readOwnerPid() found owner pid: 0"), 1u);
  EXPECT_EQ(messages(5, "Util::readOwnerPid() found owner pid: " + self), 1u);
}

TEST_F(OwnerDiscoveryFaultTest, ADescriptorThatIsClosedIsSkipped) {
  Fault::arm("stat", 1, ENOENT).onPath(seenThrough("self"));
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  const auto all = handler.messages();
  const auto gone =
      std::find(all.begin(), all.end(),
                Message{1, "Util::readOwnerPid() stat failed: No such file or directory"});
  ASSERT_NE(gone, all.end());
  EXPECT_EQ((gone - 1)->text, "Util::readOwnerPid() reading entry " + seenThrough("self"));
}

TEST_F(OwnerDiscoveryFaultTest, OnlySocketsAreCompared) {
  Fault::alterStat("stat", 1, [](struct stat& status) {
    status.st_mode = (status.st_mode & ~static_cast<mode_t>(S_IFMT)) | S_IFREG;
  }).onPath(seenThrough("self"));
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_THAT(
      handler.texts(5),
      Not(Contains(testing::StartsWith("Util::readOwnerPid() socket " + seenThrough("self")))));
}

TEST_F(OwnerDiscoveryFaultTest, ASocketOfAnotherInodeIsNotTheOne) {
  Fault::alterStat("stat", 1, [](struct stat& status) {
    status.st_ino = 7;
  }).onPath(seenThrough("self"));
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(messages(5, "Util::readOwnerPid() socket " + seenThrough("self") + "'s inode is: 7"),
            1u);
  EXPECT_EQ(messages(5, "Util::readOwnerPid() found owner pid: 0"), 1u);  // thread-self
}

TEST_F(OwnerDiscoveryFaultTest, ADirectoryThatCannotBeReadEndsTheSearch) {
  Fault::arm("readdir", 1, EIO).onPath("/proc/" + self + "/fd");
  handler.expectFailures();
  const std::string text =
      "DirNode::readEntry() failed to read /proc/self/fd errno: Input/output "
      "error";
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { find(); }), text);
  EXPECT_THAT(handler.texts(0), ElementsAre(text));
  EXPECT_EQ(handler.messages().back().text, "DirNode::~DirNode() path: /proc");
  EXPECT_EQ(owner, "unchanged");
}

TEST_F(OwnerDiscoveryFaultTest, AHolderWhoseExecutableIsASecretHasAnEmptyName) {
  Fault::arm("readlink", 1, EACCES).onPath("/proc/" + self + "/exe");
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(owner, "");
}

TEST_F(OwnerDiscoveryFaultTest, AnExecutableWithoutANameIsEmptyAndNotLogged) {
  Fault::armResult("readlink", 1, 0);
  Fault::arm("readlink", 2, EACCES);
  EXPECT_EQ(Util::readOwner(handler, 1), "");
  EXPECT_EQ(Util::readOwner(handler, 1), "");
  EXPECT_EQ(handler.queries(), 0u);
}

TEST_F(OwnerDiscoveryFaultTest, NothingIsFormattedThatIsNotLogged) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  Fault::arm("opendir", 1, EACCES).onPath("/proc/self/fd");
  Fault::arm("stat", 1, ENOENT).onPath(seenThrough("thread-self"));
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(Fault::calls("strerror"), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
