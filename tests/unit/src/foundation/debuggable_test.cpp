// SPDX-License-Identifier: MIT
#include <zorbe/debuggable.h>

#include "sockets/dir_node.h"
#include "support/destroyed_object.h"
#include "support/fake_platform_fixture.h"
#include "support/noncopyable.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <zorbe/kick.h>
#include <zorbe/mounter.h>
#include <zorbe/root_path.h>
#include <zorbe/unlock.h>

namespace Zorbe::Test {
namespace {

class DyingHandler : public Brask::Platform::DebugHandler, private NonCopyable {
 public:
  explicit DyingHandler(int& deaths) : deaths_(deaths) {}
  ~DyingHandler() override { ++deaths_; }
  bool isEnabled(int) override { return false; }
  void emit(std::ostringstream&, int) override {}

 private:
  int& deaths_;
};

class Logging : public Brask::Debuggable {
 public:
  using Debuggable::Debuggable;
  Brask::Platform::DebugHandler*& handlerSlot() { return handler; }
  bool& owns() { return ownsHandler; }
};

/// Where an object and its handler were when it has been destroyed.
template <class Object>
class DestroyedDebuggable : public DestroyedObject<Object> {
 public:
  using DestroyedObject<Object>::DestroyedObject;
  const void* handlerLeftBehind() { return this->destroyAndRead((*this)->handlerSlot()); }
};

class DebuggableTest : public FakePlatformTest {
 protected:
  int deaths = 0;
  Reader::Counters counters{};
};

TEST_F(DebuggableTest, RefersToTheHandlerItIsGivenWithoutAskingIt) {
  Logging object(handler);
  EXPECT_EQ(object.handlerSlot(), &handler);
  EXPECT_FALSE(object.owns());
  EXPECT_EQ(handler.queries(), 0u);
}

TEST_F(DebuggableTest, NeverDeletesAHandlerThatItDoesNotOwn) {
  DyingHandler client(deaths);
  { const Logging object(client); }
  EXPECT_EQ(deaths, 0);
}

TEST_F(DebuggableTest, DeletesAHandlerThatItOwns) {
  {
    Logging object(*new DyingHandler(deaths));
    object.owns() = true;
  }
  EXPECT_EQ(deaths, 1);
}

TEST_F(DebuggableTest, OwningNoHandlerIsHarmless) {
  Logging object(handler);
  object.handlerSlot() = nullptr;
  object.owns() = true;
}

TEST_F(DebuggableTest, IsCopiedMemberByMember) {
  const Logging object(handler);
  Logging copy(object);
  EXPECT_EQ(copy.handlerSlot(), &handler);
  EXPECT_FALSE(copy.owns());
}

TEST_F(DebuggableTest, ForgetsTheHandlerWhenItIsDestroyed) {
  EXPECT_EQ(DestroyedDebuggable<Logging>(handler).handlerLeftBehind(), nullptr);
}

TEST_F(DebuggableTest, ForgetsTheHandlerThatItDeletes) {
  DestroyedDebuggable<Logging> object(*new DyingHandler(deaths));
  object->owns() = true;
  EXPECT_EQ(object.handlerLeftBehind(), nullptr);
  EXPECT_EQ(deaths, 1);
}

/// A client's class below one of the library's, and where its handler is.
template <class Base>
class Exposed : public Base {
 public:
  using Base::Base;
  Brask::Platform::DebugHandler*& handlerSlot() { return this->handler; }
};

class TableWriter : public WriterKickSm {
 public:
  using WriterKickSm::WriterKickSm;
  int expectReconnects() override { return 0; }
  void readersChanged() override {}
};

class TableReader : public ReaderKickSm {
 public:
  using ReaderKickSm::ReaderKickSm;
  uint64_t readerSequence() override { return 0; }
  void writerConnectionChanged() override {}
  void writerAcknowledged() override {}
  std::string readerName() const override { return {}; }
};

class Watcher : public WriterUnlockSm {
 public:
  using WriterUnlockSm::WriterUnlockSm;
  void writerUnlocked() override {}
};

class MounterClient : public MounterBase {
 public:
  void rootChanged(const std::string&) override {}
};

TEST_F(DebuggableTest, EveryClassOfTheLibraryForgetsTheHandler) {
  const RootPath root(handler, "t", false);
  MounterClient client;
  EXPECT_EQ(DestroyedDebuggable<Exposed<RootPath>>(handler, "t", false).handlerLeftBehind(),
            nullptr);
  EXPECT_EQ(DestroyedDebuggable<Exposed<TableWriter>>(handler, root, true).handlerLeftBehind(),
            nullptr);
  EXPECT_EQ(DestroyedDebuggable<Exposed<TableReader>>(handler, root, counters).handlerLeftBehind(),
            nullptr);
  EXPECT_EQ(DestroyedDebuggable<Exposed<Watcher>>(handler, "label", root).handlerLeftBehind(),
            nullptr);
  EXPECT_EQ(DestroyedDebuggable<Exposed<MounterSm>>(handler, "t", &client).handlerLeftBehind(),
            nullptr);
  EXPECT_EQ(
      DestroyedDebuggable<Exposed<ParentMounterSm>>(handler, nullptr, "/a/b").handlerLeftBehind(),
      nullptr);
  EXPECT_EQ(DestroyedDebuggable<Exposed<DirNode>>(handler, nullptr, rootPath()).handlerLeftBehind(),
            nullptr);
}

TEST_F(DebuggableTest, AConnectionForgetsTheHandler) {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);  // closed by the connection
  TableWriter writer(handler, RootPath(handler, "t", false), true);
  EXPECT_EQ(
      DestroyedDebuggable<Exposed<ReaderKickClientSm>>(handler, &writer, fd).handlerLeftBehind(),
      nullptr);
}

}  // namespace
}  // namespace Zorbe::Test
