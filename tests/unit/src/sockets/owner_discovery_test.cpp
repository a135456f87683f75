// SPDX-License-Identifier: MIT
#include "support/converting_locale.h"
#include "unit/src/sockets/sockets_fixture.h"

#include <sys/stat.h>
#include <zorbe/util.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OwnerDiscoveryTest : public SocketsTest {
 protected:
  OwnerDiscoveryTest() { owner = "unchanged"; }

  unsigned int find() {
    handler.clear();
    return Util::readOwnerPid(handler, root, owner);
  }

  /// The socket of the table, held by this process alone.
  int hold() { return keep(RawPeer::bind(root).release()); }

  static std::string inodeOf(int fd) {
    const Fault::Bypass bypass;
    struct stat status = {};
    EXPECT_EQ(fstat(fd, &status), 0);
    return std::to_string(status.st_ino);
  }

  /// What /proc/net/unix is to hold.
  void listSockets(const std::string& lines) {
    Fault::redirect("fopen", "/proc/net/unix", makeFile("unix", lines));
  }

  std::string line(const std::string& inode) const {
    return "0000000000000000: 00000002 00000000 00010000 0005 01 " + inode + " @" +
           table.abstractName();
  }

  /// /proc with nothing but this process's descriptor `fd` under the name `process`.
  void listOnly(const std::string& process, int fd) {
    const Fault::Bypass bypass;
    EXPECT_EQ(mkdir(inRoot("proc").c_str(), 0755), 0);
    EXPECT_EQ(mkdir(inRoot("fd").c_str(), 0755), 0);
    makeFile("proc/" + process, "");
    makeFile("fd/" + std::to_string(fd), "");
    Fault::redirect("opendir", "/proc", inRoot("proc"));
    Fault::redirect("opendir", "/proc/" + process + "/fd", inRoot("fd"));
  }

  /// What was said, without what concerns the entries "." and "..", wherever they come, and
  /// the walk over the directories.
  std::vector<Message> messagesWithoutEntries() const {
    std::vector<Message> messages;
    for (const Message& message : handler.messages()) {
      const bool dots = message.text.find("/.") != std::string::npos;
      if (!dots && message.text.find("DirNode") != 0) messages.push_back(message);
    }
    return messages;
  }

  static std::string executable() {
    char text[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", text, sizeof text);
    return length < 0 ? std::string() : std::string(text, static_cast<size_t>(length));
  }

  static constexpr const char* kHeading = "Num       RefCount Protocol Flags    Type St Inode Path";
  static constexpr const char* kUnusedInode = "18446744073709551615";

  const std::string root = inRoot("quotes");
  TableSocket table{root};
  std::string owner;
};

TEST_F(OwnerDiscoveryTest, FindsTheCallingProcessItself) {
  hold();
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_EQ(owner, executable());
}

TEST_F(OwnerDiscoveryTest, LogsTheWholeSearch) {
  const int fd = hold();
  const std::string inode = inodeOf(fd);
  const std::string path = "/proc/self/fd/" + std::to_string(fd);
  listSockets(std::string(kHeading) + "\n" + line(inode) + "\nnot read any more\n");
  listOnly("self", fd);
  find();
  EXPECT_THAT(
      messagesWithoutEntries(),
      ElementsAre(Logged(2, "Util::createSockaddr() " + root + " using abstract socket " +
                                table.abstractName()),
                  Logged(5, std::string("Util::readOwnerPid() ") + kHeading),
                  Logged(5, "Util::readOwnerPid() " + line(inode)),
                  Logged(5, "Util::readOwnerPid() sockInode = " + inode),
                  Logged(9, "Util::readOwnerPid() reading entry " + path),
                  Logged(5, "Util::readOwnerPid() socket " + path + "'s inode is: " + inode),
                  Logged(5, "Util::readOwnerPid() found owner pid: " + std::to_string(getpid())),
                  Logged(5, "Util::readOwner() ownerStr: " + executable())));
}

TEST_F(OwnerDiscoveryTest, WalksTheProcessesAndTheirDescriptors) {
  const int fd = hold();
  listSockets(line(inodeOf(fd)));
  listOnly("self", fd);
  find();
  const std::vector<std::string> walk = {
      "DirNode::DirNode() path: /proc",          "DirNode::readEntry() path: /proc",
      "DirNode::DirNode() path: /proc/self/fd",  "DirNode::readEntry() path: /proc/self/fd",
      "DirNode::~DirNode() path: /proc/self/fd", "DirNode::~DirNode() path: /proc"};
  const auto all = handler.texts(9);
  auto from = all.begin();
  for (const auto& text : walk) {
    from = std::find(from, all.end(), text);
    EXPECT_NE(from, all.end()) << text;
  }
  EXPECT_EQ(all.back(), walk.back());
}

TEST_F(OwnerDiscoveryTest, LogsEveryLineAndTheEmptyReadAtTheEnd) {
  listSockets(std::string(kHeading) + "\n\nother @zorbe_quotes_00000000\n");
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(owner, "unchanged");
  EXPECT_THAT(
      handler.texts(5),
      ElementsAre(std::string("Util::readOwnerPid() ") + kHeading, "Util::readOwnerPid() ",
                  "Util::readOwnerPid() other @zorbe_quotes_00000000", "Util::readOwnerPid() "));
}

TEST_F(OwnerDiscoveryTest, ALastLineWithoutAnEndIsReadOnce) {
  listSockets("one\ntwo");
  find();
  EXPECT_THAT(handler.texts(5),
              ElementsAre("Util::readOwnerPid() one", "Util::readOwnerPid() two"));
}

TEST_F(OwnerDiscoveryTest, AnEmptyListIsOneEmptyRead) {
  listSockets("");
  EXPECT_EQ(find(), 0u);
  EXPECT_THAT(handler.texts(5), ElementsAre("Util::readOwnerPid() "));
}

TEST_F(OwnerDiscoveryTest, ASocketWithoutAHolderHasNoOwner) {
  listSockets(line(kUnusedInode) + "\n");
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(owner, "unchanged");
  EXPECT_THAT(handler.texts(5),
              testing::Contains(std::string("Util::readOwnerPid() sockInode = ") + kUnusedInode));
}

TEST_F(OwnerDiscoveryTest, SkipsInodesThatAreNone) {
  for (const char* token : {"0", "x12", "-"}) {
    listSockets(line(token));
    EXPECT_EQ(find(), 0u);
    EXPECT_THAT(handler.texts(1),
                ElementsAre(std::string("Util::readOwnerPid() Couldn't convert inode token \"") +
                            token + "\" to U32."));
    EXPECT_THAT(handler.texts(9), IsEmpty());
    Fault::reset();
  }
}

TEST_F(OwnerDiscoveryTest, TakesTheLastFieldButOneOfAnyLine) {
  const std::string name = "@" + table.abstractName();
  const std::pair<std::string, std::string> cases[] = {
      {name, ""},         {" " + name, ""},     {"x " + name, "x"},
      {"a  " + name, ""}, {"1 y " + name, "y"}, {"1 " + name + " ", name}};
  for (const auto& [text, token] : cases) {
    listSockets(text);
    EXPECT_EQ(find(), 0u);
    EXPECT_THAT(handler.texts(1), ElementsAre("Util::readOwnerPid() Couldn't convert inode token "
                                              "\"" +
                                              token + "\" to U32."));
    Fault::reset();
  }
}

TEST_F(OwnerDiscoveryTest, ContinuesToTheNextLineThatNamesTheSocket) {
  const int fd = hold();
  listSockets(line("0") + "\n" + line(kUnusedInode) + "\n" + line(inodeOf(fd)) + "\n");
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_THAT(handler.texts(5),
              testing::IsSupersetOf({"Util::readOwnerPid() " + line("0"),
                                     "Util::readOwnerPid() " + line(kUnusedInode),
                                     "Util::readOwnerPid() " + line(inodeOf(fd))}));
}

TEST_F(OwnerDiscoveryTest, TheNameMayStandAnywhereInTheLine) {
  const int fd = hold();
  listSockets("1 " + table.abstractName() + "x " + inodeOf(fd) + " @other");
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
}

TEST_F(OwnerDiscoveryTest, ConvertsTheNameOfAProcess) {
  const int fd = hold();
  const std::string self = std::to_string(getpid());
  listSockets(line(inodeOf(fd)));
  listOnly(self, fd);
  EXPECT_EQ(find(), static_cast<unsigned>(getpid()));
  EXPECT_THAT(handler.texts(5),
              testing::Contains("Util::readOwnerPid() socket /proc/" + self + "/fd/" +
                                std::to_string(fd) + "'s inode is: " + inodeOf(fd)));
}

TEST_F(OwnerDiscoveryTest, AHolderThatIsNoNumberIsNone) {
  const int fd = hold();
  listSockets(line(inodeOf(fd)));
  listOnly("thread-self", fd);
  EXPECT_EQ(find(), 0u);
  EXPECT_EQ(owner, "unchanged");
  const auto messages = messagesWithoutEntries();
  ASSERT_GE(messages.size(), 2u);
  EXPECT_THAT(std::vector<Message>(messages.end() - 2, messages.end()),
              ElementsAre(Logged(1,
                                 "Util::readOwnerPid() could not convert  pid directory string "
                                 "\"thread-self\" to U32"),
                          Logged(5, "Util::readOwnerPid() found owner pid: 0")));
}

TEST_F(OwnerDiscoveryTest, ReadsTheExecutableOfAProcess) {
  EXPECT_EQ(Util::readOwner(handler, static_cast<unsigned>(getpid())), executable());
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "Util::readOwner() ownerStr: " + executable())));
}

TEST_F(OwnerDiscoveryTest, AProcessThatIsNotThereHasNoExecutableAndNoLog) {
  EXPECT_EQ(Util::readOwner(handler, 4294967295u), "");
  EXPECT_EQ(handler.queries(), 0u);
}

TEST_F(OwnerDiscoveryTest, AnExecutablesPathMayBe4095BytesLong) {
  const std::string target(4095, 'x');
  ASSERT_EQ(symlink(target.c_str(), inRoot("exe").c_str()), 0);
  Fault::redirect("readlink", "/proc/4294967295/exe", inRoot("exe"));
  EXPECT_EQ(Util::readOwner(handler, 4294967295u), target);
}

TEST_F(OwnerDiscoveryTest, AConvertingGlobalLocaleHidesNoSocket) {
  listSockets(line(inodeOf(hold())) + "\n");
  const ConvertingLocale converting;
  EXPECT_EQ(find(), static_cast<unsigned int>(getpid()));
}

TEST_F(OwnerDiscoveryTest, ReadsTheCommandLineWithBlanksForZeroBytes) {
  const std::string bytes("a\0b\0", 4);
  Fault::redirect("open", "/proc/4711/cmdline", makeFile("cmdline", bytes));
  EXPECT_EQ(Util::readCmdline(handler, 4711), "a b ");
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5, "Util::fileRead() read /proc/4711/cmdline '" + bytes + "'")));
}

TEST_F(OwnerDiscoveryTest, LeavesBlanksOfTheCommandLineAsTheyAre) {
  Fault::redirect("open", "/proc/4711/cmdline", makeFile("cmdline", std::string("a b\0\0c\n", 7)));
  EXPECT_EQ(Util::readCmdline(handler, 4711), "a b  c\n");
}

TEST_F(OwnerDiscoveryTest, AProcessThatIsNotThereHasAnEmptyCommandLine) {
  EXPECT_EQ(Util::readCmdline(handler, -7), "");
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(5,
                                 "Util::fileRead() unable to open file /proc/-7/cmdline: No "
                                 "such file or directory")));
}

}  // namespace
}  // namespace Zorbe::Test
