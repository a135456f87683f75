// SPDX-License-Identifier: MIT
#include "unit/src/sockets/sockets_fixture.h"

#include <sys/socket.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class WriterLockFaultTest : public SocketsTest {
 protected:
  WriterLockFaultTest() {
    handler.setMaxLevel(1);
    handler.clobberErrno(EXDEV);
  }

  int acquire() { return Util::acquireWriterLock(handler, root); }

  /// What is read for want of a pid.
  void hideMachineStatistics() { Fault::redirect("open", "/proc//stat", makeFile("stat", "")); }

  /// `text` is both what is thrown and what is logged, at level 0 and alone.
  void expectFailure(const std::string& text) {
    handler.expectFailures();
    EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { acquire(); }), text);
    EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
  }

  std::string bindFailure(const std::string& why) const {
    return "Util::acquireWriterLock() bind() failed for " + root.path +
           " socket:" + table.abstractName() + " error: " + why;
  }

  RecordingHandler quiet;
  RootPath root{quiet, "quotes", true};
  TableSocket table{root.path};
};

TEST_F(WriterLockFaultTest, LogsWhyThereIsNoSocket) {
  Fault::arm("socket", 1, EMFILE);
  expectFailure("Util::acquireWriterLock() socket failed: Too many open files");
}

TEST_F(WriterLockFaultTest, LogsWhyThereIsNoNamespaceForTheSocket) {
  Fault::arm("open", 1, ENFILE).onPath("/proc/self/ns/net");
  expectFailure("Util::acquireWriterLock() socket failed: Too many open files in system");
}

TEST_F(WriterLockFaultTest, AnOptionThatCannotBeSetLeavesTheSocketOpen) {
  Fault::arm("setsockopt", 1, ENOMEM);
  expectLeakedDescriptors(1);
  expectFailure("Util::acquireWriterLock() setsockopt() failed: Cannot allocate memory");
  EXPECT_EQ(Fault::calls("bind"), 0u);
}

TEST_F(WriterLockFaultTest, LogsWhyTheNameCannotBeBound) {
  Fault::arm("bind", 1, EACCES);
  expectFailure(bindFailure("Permission denied"));
}

TEST_F(WriterLockFaultTest, AFailedBindLeavesNoNoteAndLooksForNoHolder) {
  Fault::arm("bind", 1, EACCES);
  const auto searched = Fault::arm("fopen", 1, EACCES).onPath("/proc/net/unix");
  allowUnfiredFaults();
  handler.expectFailures();
  EXPECT_THROW(acquire(), Brask::RuntimeException);
  EXPECT_EQ(searched.fired(), 0u);
  EXPECT_EQ(access(root.fullPath("last-owner").c_str(), F_OK), -1);
}

TEST_F(WriterLockFaultTest, TheResultOfCloseDecidesAboutATakenName) {
  Fault::arm("bind", 1, EADDRINUSE);
  Fault::arm("close", 2, EIO);  // the first is that of the namespace
  expectFailure(bindFailure("Input/output error"));
}

TEST_F(WriterLockFaultTest, AnAddressInUseOnCloseIsATakenName) {
  Fault::arm("bind", 1, EACCES);
  Fault::arm("close", 2, EADDRINUSE);
  handler.expectFailures();
  EXPECT_THROW(acquire(), DuplicateWriterException);
}

TEST_F(WriterLockFaultTest, ATakenNameWithoutAHolderIsReportedWithoutAnOwner) {
  Fault::arm("bind", 1, EADDRINUSE);
  hideMachineStatistics();
  handler.expectFailures();
  const std::string report = "Util::acquireWriterLock() duplicate writer detected :0 " + root.path +
                             " socket:" + table.abstractName() + " lastOwner: /proc//stat: ";
  try {
    acquire();
    ADD_FAILURE() << "not refused";
  } catch (const DuplicateWriterException& exception) {
    EXPECT_EQ(exception.what(), report);
    EXPECT_EQ(exception.pid, 0u);
    EXPECT_EQ(exception.owner, "");
    EXPECT_EQ(exception.lastOwner, "");
  }
  EXPECT_THAT(handler.texts(0), ElementsAre(report));
}

TEST_F(WriterLockFaultTest, TheLoserHasClosedItsSocketBeforeItLooksForTheHolder) {
  keep(RawPeer::bind(root.path).release());
  const Census before = Census::take();
  size_t opened = 99;
  Fault::before("opendir", 1, [&] { opened = before.openedBy(Census::take()).size(); });
  handler.expectFailures();
  EXPECT_THROW(acquire(), DuplicateWriterException);
  EXPECT_EQ(opened, 1u);  // the list of sockets that is being read
}

TEST_F(WriterLockFaultTest, ASearchThatFailsTakesTheReportsPlace) {
  keep(RawPeer::bind(root.path).release());
  Fault::arm("opendir", 1, EMFILE).onPath("/proc");
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { acquire(); }), "Couldn't open /proc");
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(1,
                                 "DirNode::DirNode() failed to open /proc errno: Too many open "
                                 "files")));
}

TEST_F(WriterLockFaultTest, ANoteThatCannotBeReadIsAnEmptyOne) {
  keep(RawPeer::bind(root.path).release());
  makeFile("quotes/last-owner", "x:4711 cmdline: ''");
  Fault::arm("open", 1, EACCES).onPath(root.fullPath("last-owner"));
  hideMachineStatistics();
  handler.expectFailures();
  EXPECT_THAT(thrownBy<DuplicateWriterException>([&] { acquire(); }),
              testing::EndsWith(" lastOwner: /proc//stat: "));
}

TEST_F(WriterLockFaultTest, AnUnreadableExecutableLeavesItsPlaceInTheNoteEmpty) {
  Fault::arm("readlink", 1, EACCES);
  keep(acquire());
  EXPECT_EQ(contentOf(root.fullPath("last-owner")), ":" + std::to_string(getpid()) + " cmdline: '" +
                                                        Util::readCmdline(quiet, getpid()) + "'\n");
}

TEST_F(WriterLockFaultTest, WritesItsNoteOnlyWhenTheNameIsItsOwn) {
  Fault::before("bind", 1,
                [&] { EXPECT_EQ(access(root.fullPath("last-owner").c_str(), F_OK), -1); });
  keep(acquire());
  EXPECT_EQ(access(root.fullPath("last-owner").c_str(), F_OK), 0);
}

TEST_F(WriterLockFaultTest, ReleasingLogsTheErrorOfClose) {
  handler.setMaxLevel(2);
  const int fd = acquire();
  handler.clear();
  Fault::arm("close", 1, EIO).onFd(fd);
  EXPECT_EQ(Util::releaseWriterLock(handler, fd), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(handler.take(), releaseMessages());
}

}  // namespace
}  // namespace Zorbe::Test
