// SPDX-License-Identifier: MIT
#include "support/child_process.h"
#include "support/descriptor_zero.h"
#include "unit/src/sockets/sockets_fixture.h"

#include <sys/stat.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cerrno>
#include <optional>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class WriterLockTest : public SocketsTest {
 protected:
  WriterLockTest() { handler.setMaxLevel(2); }

  int acquire() { return acquireFor(root); }
  int acquireFor(const RootPath& rootOfTable) {
    handler.clear();
    return keep(Util::acquireWriterLock(handler, rootOfTable));
  }

  /// The second writer's exception.
  std::optional<DuplicateWriterException> refusal() {
    handler.expectFailures();
    try {
      acquire();
    } catch (const DuplicateWriterException& exception) {
      return exception;
    }
    ADD_FAILURE() << "not refused";
    return std::nullopt;
  }

  std::string note() const {
    return executable() + ":" + std::to_string(getpid()) + " cmdline: '" + cmdline() + "'";
  }

  std::string executable() const { return Util::readOwner(quiet, static_cast<unsigned>(getpid())); }
  std::string cmdline() const { return Util::readCmdline(quiet, getpid()); }
  std::string lastOwner() const { return contentOf(root.fullPath("last-owner")); }
  void leaveNote(const std::string& text) { makeFile("quotes/last-owner", text); }

  std::string reportAbout(const std::string& holder, const std::string& statPath,
                          const std::string& stat) const {
    return "Util::acquireWriterLock() duplicate writer detected " + holder + " " + root.path +
           " socket:" + table.abstractName() + " lastOwner:" + lastOwner() + " " + statPath + ": " +
           stat;
  }

  /// With this note, the report has the statistics of this process.
  void expectStatOf(const std::string& pid, const std::string& noted) {
    acquire();
    leaveNote(noted);
    const std::string path = "/proc/" + pid + "/stat";
    const std::string stat = "4711 (x) S 1\n";
    Fault::redirect("open", path, makeFile("stat", stat));
    const auto refused = refusal();
    const std::string holder = executable() + ":" + std::to_string(getpid());
    EXPECT_EQ(refused->what(), reportAbout(holder, path, stat));
  }

  mutable RecordingHandler quiet;
  RootPath root{quiet, "quotes", true};
  TableSocket table{root.path};
};

TEST_F(WriterLockTest, TheLockIsTheBoundSocketOfTheTable) {
  const int fd = acquire();
  sockaddr_un bound = {};
  socklen_t length = sizeof bound;
  EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length), 0);
  EXPECT_EQ(length, table.length);
  EXPECT_EQ(std::memcmp(&bound, &table.address, length), 0);
}

TEST_F(WriterLockTest, TheSocketIsReusableSequencedAndDoesNotListenYet) {
  const int fd = acquire();
  for (const auto& [name, expected] : {std::pair(SO_DOMAIN, AF_UNIX),
                                       {SO_TYPE, SOCK_SEQPACKET},
                                       {SO_REUSEADDR, 1},
                                       {SO_ACCEPTCONN, 0}}) {
    int value = -1;
    socklen_t length = sizeof value;
    EXPECT_EQ(getsockopt(fd, SOL_SOCKET, name, &value, &length), 0);
    EXPECT_EQ(value, expected) << "option " << name;
  }
  EXPECT_FALSE(RawPeer::connect(root.path).isOpen());
  EXPECT_EQ(errno, ECONNREFUSED);
}

TEST_F(WriterLockTest, ReportsWhoHasBecomeTheWriter) {
  errno = 0;
  acquire();
  EXPECT_THAT(
      handler.take(),
      ElementsAre(Logged(2, "Util::socket() success opening /proc/self/ns/net"),
                  Logged(2,
                         "Util::socket() setnsByName() to default failure: no namespaces in this "
                         "test"),
                  Logged(2, "Util::socket() success opening local socket: Success"),
                  Logged(2, "Util::createSockaddr() " + root.path + " using abstract socket " +
                                table.abstractName()),
                  Logged(2, "Util::acquireWriterLock() " + note() +
                                " successfully acquired writer-lock: " + table.abstractName())));
}

TEST_F(WriterLockTest, ARefusalReportsWhatItCouldNotRead) {
  acquire();
  handler.setMaxLevel(5);
  leaveNote("/gone:4294967295 cmdline: ''");
  EXPECT_TRUE(refusal());
  const std::string unable = "Util::fileRead() unable to open file ";
  EXPECT_THAT(handler.texts(5),
              testing::Contains(unable + "/proc/4294967295/stat: No such file or directory"));
  EXPECT_EQ(unlink(root.fullPath("last-owner").c_str()), 0);
  EXPECT_TRUE(refusal());
  EXPECT_THAT(handler.texts(5), testing::Contains(unable + root.fullPath("last-owner") +
                                                  ": No such file or directory"));
}

TEST_F(WriterLockTest, TheLockMayBeDescriptorZero) {
  const DescriptorZero zero;
  zero.freeBefore("socket");
  EXPECT_EQ(Util::acquireWriterLock(handler, root), 0);
}

TEST_F(WriterLockTest, LeavesANoteThatEveryUserMayReadAndReplace) {
  acquire();
  EXPECT_EQ(lastOwner(), note() + "\n");
  struct stat status = {};
  EXPECT_EQ(stat(root.fullPath("last-owner").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0666u);
}

TEST_F(WriterLockTest, TheNoteOfAnEarlierWriterIsReplaced) {
  leaveNote("somebody with a longer note than ours will be, by far: " + std::string(9000, 'x'));
  acquire();
  EXPECT_EQ(lastOwner(), note() + "\n");
}

TEST_F(WriterLockTest, ASecondWriterLearnsWhoHoldsTheLock) {
  acquire();
  leaveNote("/bin/earlier:999999999 cmdline: 'earlier '\n");
  const auto refused = refusal();
  const std::string holder = executable() + ":" + std::to_string(getpid());
  const std::string report = reportAbout(holder, "/proc/999999999/stat", "");
  EXPECT_STREQ(refused->what(), report.c_str());
  EXPECT_EQ(refused->pid, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(refused->owner, executable());
  EXPECT_EQ(refused->lastOwner, "/bin/earlier:999999999 cmdline: 'earlier '\n");
  EXPECT_STREQ(refused->name(), "Zorbe::DuplicateWriterException");
  EXPECT_THAT(handler.texts(0), ElementsAre(report));
}

TEST_F(WriterLockTest, ARefusedWriterLeavesTheNoteAlone) {
  acquire();
  leaveNote("untouched");
  refusal();
  EXPECT_EQ(lastOwner(), "untouched");
}

TEST_F(WriterLockTest, TheReportShowsWhetherTheNotedWriterIsAlive) {
  expectStatOf("b:c:4711", "/bin/a:b:c:4711 cmdline: 'x:1 y'\n");
}

TEST_F(WriterLockTest, ANoteWithoutAColonStartsWithThePid) {
  expectStatOf("4711", "4711 and more");
}

TEST_F(WriterLockTest, ANoteWithoutABlankIsThePidAsAWhole) {
  acquire();
  leaveNote("x:4711\n");
  const std::string holder = executable() + ":" + std::to_string(getpid());
  EXPECT_EQ(refusal()->what(), reportAbout(holder, "/proc/4711\n/stat", ""));
}

TEST_F(WriterLockTest, AMissingNoteIsAnEmptyOne) {
  acquire();
  root.removeFile("last-owner");
  Fault::redirect("open", "/proc//stat", makeFile("stat", "the machine's own"));
  const auto refused = refusal();
  const std::string holder = executable() + ":" + std::to_string(getpid());
  EXPECT_EQ(refused->what(), reportAbout(holder, "/proc//stat", "the machine's own"));
  EXPECT_EQ(refused->lastOwner, "");
}

TEST_F(WriterLockTest, AnotherProcessIsFoundAndItsDeathFreesTheLock) {
  const int fd = Util::acquireWriterLock(handler, root);
  const auto holdIt = [](Channel& parent) { parent.receiveAll(); };
  ChildProcess holder("holder", holdIt, User::kSame, {fd});
  EXPECT_EQ(close(fd), 0);
  const auto refused = refusal();
  EXPECT_EQ(refused->pid, static_cast<uint32_t>(holder.pid()));
  EXPECT_EQ(refused->owner, executable());
  leaveNote("dead:1 cmdline: ''");
  holder.kill();
  EXPECT_GE(acquire(), 0);
  EXPECT_EQ(lastOwner(), note() + "\n");
}

TEST_F(WriterLockTest, TablesDoNotShareALock) {
  const RootPath other(quiet, "trades", true);
  EXPECT_GE(acquire(), 0);
  EXPECT_GE(acquireFor(other), 0);
}

TEST_F(WriterLockTest, ARemovedRootDirectoryIsCreatedAgainForTheNote) {
  root.cleanup();
  ASSERT_FALSE(root.exists());
  acquire();
  EXPECT_EQ(lastOwner(), note() + "\n");
  EXPECT_THAT(handler.texts(2),
              testing::Contains("RootPath::RootPath() rootpath is: " + root.path));
  struct stat status = {};
  EXPECT_EQ(stat(root.path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0777u);
}

TEST_F(WriterLockTest, AnExistingRootDirectoryIsNotTouched) {
  EXPECT_EQ(chmod(root.path.c_str(), 0700), 0);
  acquire();
  struct stat status = {};
  EXPECT_EQ(stat(root.path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777u, 0700u);
  EXPECT_EQ(platform.mkpathCalls().size(), 1u);  // that of the fixture
}

TEST_F(WriterLockTest, NoDirectoryNoLock) {
  root.cleanup();
  platform.failMkpath(EROFS);
  handler.expectFailures();
  EXPECT_EQ(thrownBy<Brask::InvalidInitializeException>([&] { acquire(); }),
            "RootPath::RootPath() mkpath() error " + root.path + ": Read-only file system");
  platform.failMkpath(0);
  EXPECT_GE(acquire(), 0);
}

TEST_F(WriterLockTest, ANoteThatCannotBeWrittenDoesNotCostTheLock) {
  ASSERT_EQ(mkdir(root.fullPath("last-owner").c_str(), 0755), 0);
  handler.expectFailures();
  EXPECT_GE(acquire(), 0);
  EXPECT_THAT(handler.texts(0),
              ElementsAre("Util::fileWrite() unable to write " + root.fullPath("last-owner") +
                          " reason: Is a directory"));
  EXPECT_EQ(handler.messages().back().text,
            "Util::acquireWriterLock() " + note() +
                " successfully acquired writer-lock: " + table.abstractName());
}

TEST_F(WriterLockTest, ANameThatDoesNotFitLeavesNothingOpen) {
  const RootPath longNamed(quiet, std::string(92, 'q'), false);
  handler.expectFailures();
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { acquireFor(longNamed); }),
            "Util::createSockaddr() zorbeName too large " + std::string(92, 'q') +
                " for 108 sockaddr_un");
}

TEST_F(WriterLockTest, ReleasingFreesTheNameAndKeepsTheNote) {
  const int fd = Util::acquireWriterLock(handler, root);
  handler.clear();
  EXPECT_EQ(Util::releaseWriterLock(handler, fd), 0);
  EXPECT_EQ(handler.take(), releaseMessages());
  EXPECT_EQ(lastOwner(), note() + "\n");
  EXPECT_GE(acquire(), 0);
}

TEST_F(WriterLockTest, ReleasingWhatIsNoDescriptorIsLoggedAllTheSame) {
  EXPECT_EQ(Util::releaseWriterLock(handler, -1), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(handler.take(), releaseMessages());
}

}  // namespace
}  // namespace Zorbe::Test
