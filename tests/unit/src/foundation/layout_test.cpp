// SPDX-License-Identifier: MIT
#include "support/layout.h"

#include "sockets/dir_node.h"

#include <brask/platform.h>
#include <zorbe/debuggable.h>
#include <zorbe/exceptions.h>
#include <zorbe/root_path.h>

#include <memory>
#include <string>
#include <type_traits>

namespace Zorbe::Test {
namespace {

using namespace Brask::Platform;

TEST(ContractLayoutTest, DebugHandlerHasItsSlotsInOrder) {
  EXPECT_EQ(slotOf(&DebugHandler::isEnabled), 2);
  EXPECT_EQ(slotOf(&DebugHandler::emit), 3);
  EXPECT_EQ(Slots<DebugHandler>::count(), 4);
}

TEST(ContractLayoutTest, CallbackInterfacesHaveTheirSlotsInOrder) {
  EXPECT_EQ(slotOf(&FdEventHandler::fdEvent), 2);
  EXPECT_EQ(Slots<FdEventHandler>::count(), 3);
  EXPECT_EQ(slotOf(&TimeoutHandler::timeout), 2);
  EXPECT_EQ(Slots<TimeoutHandler>::count(), 3);
  EXPECT_EQ(slotOf(&InotifyHandler::inotifyError), 2);
  EXPECT_EQ(slotOf(&InotifyHandler::inotifyDeleted), 3);
  EXPECT_EQ(slotOf(&InotifyHandler::inotifyChanged), 4);
  EXPECT_EQ(Slots<InotifyHandler>::count(), 5);
}

TEST(ContractLayoutTest, ControlsHaveTheirSlotsInOrder) {
  EXPECT_EQ(slotOf(&FdControl::watch), 2);
  EXPECT_EQ(slotOf(&FdControl::unwatch), 3);
  EXPECT_EQ(slotOf(&FdControl::fd), 4);
  EXPECT_EQ(Slots<FdControl>::count(), 5);
  EXPECT_EQ(slotOf(&TimerControl::start), 2);
  EXPECT_EQ(slotOf(&TimerControl::cancel), 3);
  EXPECT_EQ(Slots<TimerControl>::count(), 4);
  EXPECT_EQ(slotOf(&InotifyControl::addWatch), 2);
  EXPECT_EQ(slotOf(&InotifyControl::removeWatch), 3);
  EXPECT_EQ(slotOf(&InotifyControl::path), 4);
  EXPECT_EQ(Slots<InotifyControl>::count(), 5);
}

template <class Interface>
void expectPureInterface() {
  EXPECT_EQ(sizeof(Interface), sizeof(void*));
  EXPECT_TRUE(std::is_abstract_v<Interface>);
  EXPECT_TRUE(std::has_virtual_destructor_v<Interface>);
}

TEST(ContractLayoutTest, InterfacesHaveNoDataMembers) {
  expectPureInterface<DebugHandler>();
  expectPureInterface<FdEventHandler>();
  expectPureInterface<TimeoutHandler>();
  expectPureInterface<InotifyHandler>();
  expectPureInterface<FdControl>();
  expectPureInterface<TimerControl>();
  expectPureInterface<InotifyControl>();
}

// What only a destructor is virtual in.
struct Polymorphic {
  virtual ~Polymorphic() = default;
};

TEST(DebuggableLayoutTest, HoldsTheHandlerAndTheFlag) {
  struct Mirror : Polymorphic {
    DebugHandler* handler;
    bool ownsHandler;
  };
  struct Probe : Brask::Debuggable {
    static void check() {
      ZORBE_EXPECT_SAME(handler);
      ZORBE_EXPECT_SAME(ownsHandler);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(Brask::Debuggable), sizeof(Mirror));
  EXPECT_EQ(Slots<Brask::Debuggable>::count(), 2);
  EXPECT_FALSE(std::is_abstract_v<Brask::Debuggable>);
}

TEST(RootPathLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : Brask::Debuggable {
    std::string path;
    std::string name;
    bool create;
    bool initialized;
  };
  using Probe = RootPath;
  ZORBE_EXPECT_SAME(path);
  ZORBE_EXPECT_SAME(name);
  ZORBE_EXPECT_SAME(create);
  ZORBE_EXPECT_SAME(initialized);
  EXPECT_EQ(sizeof(RootPath), sizeof(Mirror));
  EXPECT_EQ((baseOffset<RootPath, Brask::Debuggable>()), 0);
  EXPECT_EQ(Slots<RootPath>::count(), 2);
}

// A private member's pointer may be named where a template is instantiated explicitly.
template <class Tag, auto member>
struct Open {
  friend auto pointerTo(Tag) { return member; }
};
struct Stream {
  friend auto pointerTo(Stream);
};
struct Linked {
  friend auto pointerTo(Linked);
};
struct Path {
  friend auto pointerTo(Path);
};
template struct Open<Stream, &DirNode::stream_>;
template struct Open<Linked, &DirNode::linked_>;
template struct Open<Path, &DirNode::path_>;

TEST(DirNodeLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : Brask::Debuggable {
    DIR* stream;
    std::shared_ptr<DirNode> linked;
    std::string path;
  };
  expectSame(pointerTo(Stream{}), &Mirror::stream, "stream");
  expectSame(pointerTo(Linked{}), &Mirror::linked, "linked");
  expectSame(pointerTo(Path{}), &Mirror::path, "path");
  EXPECT_EQ(sizeof(DirNode), sizeof(Mirror));
  EXPECT_EQ((baseOffset<DirNode, Brask::Debuggable>()), 0);
  EXPECT_EQ(Slots<DirNode>::count(), 2);
}

// std::exception has a what() of its own, at slot 2.
struct ExceptionMirror : std::exception {
  std::string text;
  std::string second;
};

TEST(ExceptionLayoutTest, BaseHasItsSlotsAndTwoStrings) {
  EXPECT_EQ(slotOf(&Brask::Exception::what), 2);
  EXPECT_EQ(slotOf(&Brask::Exception::name), 3);
  EXPECT_EQ(Slots<Brask::Exception>::count(), 4);
  EXPECT_EQ(sizeof(Brask::Exception), sizeof(ExceptionMirror));
  EXPECT_EQ((baseOffset<Brask::Exception, std::exception>()), 0);
}

template <class Thrown>
void expectOnlyItsName() {
  EXPECT_EQ(slotOf(&Thrown::name), 3);
  EXPECT_EQ(Slots<Thrown>::count(), 4);
  EXPECT_EQ(sizeof(Thrown), sizeof(Brask::Exception));
  EXPECT_EQ((baseOffset<Thrown, Brask::Exception>()), 0);
}

TEST(ExceptionLayoutTest, DerivedClassesAddNothing) {
  expectOnlyItsName<Brask::RuntimeException>();
  expectOnlyItsName<Brask::InvalidInitializeException>();
  expectOnlyItsName<ConnectionException>();
  expectOnlyItsName<CorruptionDetectedException>();
}

TEST(ExceptionLayoutTest, DuplicateWriterExceptionAddsItsFieldsInOrder) {
  struct Mirror : Brask::Exception {
    using Exception::Exception;
    uint32_t pid;
    std::string owner;
    std::string lastOwner;
  };
  using Probe = DuplicateWriterException;
  ZORBE_EXPECT_SAME(pid);
  ZORBE_EXPECT_SAME(owner);
  ZORBE_EXPECT_SAME(lastOwner);
  EXPECT_EQ(sizeof(DuplicateWriterException), sizeof(Mirror));
  EXPECT_EQ(slotOf(&DuplicateWriterException::name), 3);
  EXPECT_EQ(Slots<DuplicateWriterException>::count(), 4);
  EXPECT_EQ((baseOffset<DuplicateWriterException, Brask::Exception>()), 0);
}

}  // namespace
}  // namespace Zorbe::Test
