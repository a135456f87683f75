// SPDX-License-Identifier: MIT
#include "sockets/dir_node.h"

#include "unit/src/sockets/sockets_fixture.h"

#include <cerrno>
#include <memory>
#include <set>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;

class DirNodeTest : public SocketsTest {
 protected:
  std::set<std::string> namesIn(DirNode& node) {
    std::set<std::string> names;
    while (const dirent* const entry = node.readEntry()) names.insert(entry->d_name);
    return names;
  }
};

TEST_F(DirNodeTest, ReadsEveryEntryAndThenNoMore) {
  makeFile("one", "");
  makeFile("two", "");
  DirNode node(handler, nullptr, rootPath());
  EXPECT_TRUE(node.isOpen());
  EXPECT_EQ(namesIn(node), (std::set<std::string>{".", "..", "one", "two"}));
  EXPECT_EQ(node.readEntry(), nullptr);
}

TEST_F(DirNodeTest, LogsItsConstructionItsEntriesAndItsDestruction) {
  { DirNode(handler, nullptr, rootPath()).readEntry(); }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "DirNode::DirNode() path: " + rootPath()),
                                          Logged(9, "DirNode::readEntry() path: " + rootPath()),
                                          Logged(9, "DirNode::~DirNode() path: " + rootPath())));
}

TEST_F(DirNodeTest, AMissingDirectoryHasNoEntries) {
  const std::string path = inRoot("none");
  handler.clobberErrno(EIO);
  {
    DirNode node(handler, nullptr, path);
    EXPECT_FALSE(node.isOpen());
    EXPECT_EQ(node.readEntry(), nullptr);
  }
  EXPECT_THAT(handler.take(), ElementsAre(Logged(9, "DirNode::DirNode() path: " + path),
                                          Logged(5, "DirNode::DirNode() failed to open " + path +
                                                        " errno: No such file or directory"),
                                          Logged(9, "DirNode::readEntry() path: " + path),
                                          Logged(5, "DirNode::readEntry() cannot read " + path +
                                                        " because the directory is not open"),
                                          Logged(9, "DirNode::~DirNode() path: " + path)));
}

TEST_F(DirNodeTest, AFileIsNoDirectory) {
  handler.setMaxLevel(5);
  const std::string path = makeFile("file", "");
  const DirNode node(handler, nullptr, path);
  EXPECT_FALSE(node.isOpen());
  EXPECT_THAT(handler.take(), ElementsAre(Logged(5, "DirNode::DirNode() failed to open " + path +
                                                        " errno: Not a directory")));
}

TEST_F(DirNodeTest, WhatTheHandlerLeavesInErrnoIsNoFailureAtTheEnd) {
  DirNode node(handler, nullptr, rootPath());
  handler.clobberErrno(EIO);
  EXPECT_EQ(namesIn(node), (std::set<std::string>{".", ".."}));
}

TEST_F(DirNodeTest, KeepsTheNodeItIsLinkedTo) {
  auto linked = std::make_shared<DirNode>(handler, nullptr, rootPath());
  const DirNode node(handler, linked, rootPath());
  EXPECT_EQ(linked.use_count(), 2);
}

}  // namespace
}  // namespace Zorbe::Test
