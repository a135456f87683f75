// SPDX-License-Identifier: MIT
#include "sockets/dir_node.h"

#include "unit/src/sockets/sockets_fixture.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <utility>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class DirNodeFaultTest : public SocketsTest {
 protected:
  DirNodeFaultTest() {
    handler.setMaxLevel(5);
    handler.clobberErrno(EXDEV);
  }

  std::string failureToOpen(int error) const {
    return "DirNode::DirNode() failed to open " + rootPath() + " errno: " + reason(error);
  }
};

TEST_F(DirNodeFaultTest, ExpectedReasonsNotToOpenAreTracedAndOthersAreNotable) {
  const std::pair<int, int> levels[] = {{EACCES, 5}, {ENOENT, 5}, {ENOTDIR, 5}, {EMFILE, 1},
                                        {ENFILE, 1}, {EIO, 1},    {ENOMEM, 1},  {EPERM, 1}};
  for (const auto& [error, level] : levels) {
    Fault::arm("opendir", 1, error);
    DirNode node(handler, nullptr, rootPath());
    EXPECT_FALSE(node.isOpen());
    EXPECT_THAT(handler.take(), ElementsAre(Logged(level, failureToOpen(error))));
  }
}

TEST_F(DirNodeFaultTest, AFailedReadIsLoggedAndThrown) {
  DirNode node(handler, nullptr, rootPath());
  Fault::arm("readdir", 2, EBADF);
  handler.expectFailures();
  EXPECT_NE(node.readEntry(), nullptr);
  const std::string text =
      "DirNode::readEntry() failed to read " + rootPath() + " errno: Bad file descriptor";
  EXPECT_EQ(thrownBy<Brask::RuntimeException>([&] { node.readEntry(); }), text);
  EXPECT_THAT(handler.take(), ElementsAre(Logged(0, text)));
}

TEST_F(DirNodeFaultTest, AFailedCloseIsLoggedAndNothingElse) {
  Fault::arm("closedir", 1, EIO);
  { const DirNode node(handler, nullptr, rootPath()); }
  EXPECT_THAT(handler.take(),
              ElementsAre(Logged(1, "DirNode::~DirNode() failed to close " + rootPath() +
                                        " errno: Input/output error")));
}

TEST_F(DirNodeFaultTest, WhatWasNeverOpenIsNotClosed) {
  Fault::arm("opendir", 1, ENOENT);
  { const DirNode node(handler, nullptr, rootPath()); }
  EXPECT_EQ(Fault::calls("closedir"), 0u);
}

TEST_F(DirNodeFaultTest, NothingIsFormattedThatIsNotLogged) {
  handler.setMaxLevel(RecordingHandler::kNothing);
  Fault::arm("opendir", 1, EIO);
  Fault::arm("closedir", 1, EIO);
  { const DirNode node(handler, nullptr, rootPath()); }
  { const DirNode node(handler, nullptr, rootPath()); }
  EXPECT_EQ(Fault::calls("strerror"), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
