// SPDX-License-Identifier: MIT
#include "support/layout.h"

#include <zorbe/kick.h>
#include <zorbe/mounter.h>
#include <zorbe/unlock.h>

#include <memory>
#include <string>
#include <unordered_map>

namespace Zorbe::Test {
namespace {

using namespace Brask::Platform;

// A plain pointer's size, as clients count on.
static_assert(sizeof(std::unique_ptr<FdControl>) == sizeof(FdControl*));

constexpr std::ptrdiff_t kPointer = sizeof(void*);

/// Three bases one after the other, none bigger than it has to be.
template <class Class>
void expectTimerFdAndDebuggable() {
  EXPECT_EQ((baseOffset<Class, TimeoutHandler>()), 0);
  EXPECT_EQ((baseOffset<Class, FdEventHandler>()), kPointer);
  EXPECT_EQ((baseOffset<Class, Brask::Debuggable>()), 2 * kPointer);
}

TEST(WriterKickSmLayoutTest, HasItsBasesAndSlotsInOrder) {
  expectTimerFdAndDebuggable<WriterKickSm>();
  EXPECT_EQ(slotOf(&WriterKickSm::timeout), 2);
  EXPECT_EQ(slotOf(&WriterKickSm::fdEvent), 3);
  EXPECT_EQ(slotOf(&WriterKickSm::expectReconnects), 4);
  EXPECT_EQ(slotOf(&WriterKickSm::readersChanged), 5);
  EXPECT_EQ(Slots<WriterKickSm>::count(), 6);
}

TEST(WriterKickSmLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : TimeoutHandler, FdEventHandler, Brask::Debuggable {
    RootPath rootPath;
    bool kickSocketCreated;
    bool local;
    uint64_t writerSequence;
    uint64_t kickCount;
    int kickSocket;
    std::unique_ptr<FdControl> listenControl;
    std::unique_ptr<TimerControl> reconnectTimer;
    std::unordered_map<int, ReaderKickClientSm*> readers;
    std::unordered_map<int, ReaderKickClientSm*> sleepingReaders;
  };
  struct Probe : WriterKickSm {
    static void check() {
      ZORBE_EXPECT_SAME(rootPath);
      ZORBE_EXPECT_SAME(kickSocketCreated);
      ZORBE_EXPECT_SAME(local);
      ZORBE_EXPECT_SAME(writerSequence);
      ZORBE_EXPECT_SAME(kickCount);
      ZORBE_EXPECT_SAME(kickSocket);
      ZORBE_EXPECT_SAME(listenControl);
      ZORBE_EXPECT_SAME(reconnectTimer);
      ZORBE_EXPECT_SAME(readers);
      ZORBE_EXPECT_SAME(sleepingReaders);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(WriterKickSm), sizeof(Mirror));
}

TEST(ReaderKickClientSmLayoutTest, HasItsBasesAndSlotsInOrder) {
  EXPECT_EQ((baseOffset<ReaderKickClientSm, FdEventHandler>()), 0);
  EXPECT_EQ((baseOffset<ReaderKickClientSm, Brask::Debuggable>()), kPointer);
  EXPECT_EQ(slotOf(&ReaderKickClientSm::fdEvent), 2);
  EXPECT_EQ(Slots<ReaderKickClientSm>::count(), 3);
}

TEST(ReaderKickClientSmLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : FdEventHandler, Brask::Debuggable {
    uint64_t sequence;
    WriterKickSm* owner;
    std::unique_ptr<FdControl> fdControl;
    bool acknowledged;
  };
  using Probe = ReaderKickClientSm;
  ZORBE_EXPECT_SAME(sequence);
  ZORBE_EXPECT_SAME(owner);
  ZORBE_EXPECT_SAME(fdControl);
  ZORBE_EXPECT_SAME(acknowledged);
  EXPECT_EQ(sizeof(ReaderKickClientSm), sizeof(Mirror));
}

TEST(ReaderKickSmLayoutTest, HasItsBasesAndSlotsInOrder) {
  expectTimerFdAndDebuggable<ReaderKickSm>();
  EXPECT_EQ(slotOf(&ReaderKickSm::timeout), 2);
  EXPECT_EQ(slotOf(&ReaderKickSm::readerSequence), 3);
  EXPECT_EQ(slotOf(&ReaderKickSm::writerConnectionChanged), 4);
  EXPECT_EQ(slotOf(&ReaderKickSm::writerAcknowledged), 5);
  EXPECT_EQ(slotOf(&ReaderKickSm::readerName), 6);
  EXPECT_EQ(slotOf(&ReaderKickSm::fdEvent), 7);
  EXPECT_EQ(Slots<ReaderKickSm>::count(), 8);
}

TEST(ReaderKickSmLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : TimeoutHandler, FdEventHandler, Brask::Debuggable {
    RootPath rootPath;
    bool initialized;
    bool connected;
    bool acknowledged;
    bool enabled;
    bool conquerAgain;
    bool notificationsDisabled;
    uint64_t sentSequence;
    std::unique_ptr<TimerControl> timerControl;
    std::unique_ptr<FdControl> fdControl;
    Reader::Counters* counters;  // a reference there; last, so that the size tells its place
  };
  struct Probe : ReaderKickSm {
    static void check() {
      ZORBE_EXPECT_SAME(rootPath);
      ZORBE_EXPECT_SAME(initialized);
      ZORBE_EXPECT_SAME(connected);
      ZORBE_EXPECT_SAME(acknowledged);
      ZORBE_EXPECT_SAME(enabled);
      ZORBE_EXPECT_SAME(conquerAgain);
      ZORBE_EXPECT_SAME(notificationsDisabled);
      ZORBE_EXPECT_SAME(sentSequence);
      ZORBE_EXPECT_SAME(timerControl);
      ZORBE_EXPECT_SAME(fdControl);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(ReaderKickSm), sizeof(Mirror));
}

TEST(WriterUnlockSmLayoutTest, HasItsBasesAndSlotsInOrder) {
  expectTimerFdAndDebuggable<WriterUnlockSm>();
  EXPECT_EQ(slotOf(&WriterUnlockSm::timeout), 2);
  EXPECT_EQ(slotOf(&WriterUnlockSm::fdEvent), 3);
  EXPECT_EQ(slotOf(&WriterUnlockSm::writerUnlocked), 4);
  EXPECT_EQ(Slots<WriterUnlockSm>::count(), 5);
}

TEST(WriterUnlockSmLayoutTest, HoldsItsMembersInOrder) {
  struct Mirror : TimeoutHandler, FdEventHandler, Brask::Debuggable {
    std::string instanceName;
    RootPath rootPath;
    std::unique_ptr<TimerControl> timerControl;
    std::unique_ptr<FdControl> fdControl;
  };
  struct Probe : WriterUnlockSm {
    static void check() {
      ZORBE_EXPECT_SAME(instanceName);
      ZORBE_EXPECT_SAME(rootPath);
      ZORBE_EXPECT_SAME(timerControl);
      ZORBE_EXPECT_SAME(fdControl);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(WriterUnlockSm), sizeof(Mirror));
}

TEST(MounterLayoutTest, ClientInterfaceHasOneOperation) {
  EXPECT_EQ(slotOf(&MounterBase::rootChanged), 2);
  EXPECT_EQ(Slots<MounterBase>::count(), 3);
  EXPECT_EQ(sizeof(MounterBase), sizeof(void*));
}

template <class Class>
void expectInotifySlots() {
  EXPECT_EQ((baseOffset<Class, InotifyHandler>()), 0);
  EXPECT_EQ((baseOffset<Class, Brask::Debuggable>()), kPointer);
  EXPECT_EQ(slotOf(&Class::inotifyError), 2);
  EXPECT_EQ(slotOf(&Class::inotifyDeleted), 3);
  EXPECT_EQ(slotOf(&Class::inotifyChanged), 4);
  EXPECT_EQ(Slots<Class>::count(), 5);
}

TEST(MounterLayoutTest, WatchersHaveTheirBasesAndSlotsInOrder) {
  expectInotifySlots<MounterSmBase>();
  expectInotifySlots<MounterSm>();
  expectInotifySlots<ParentMounterSm>();
  EXPECT_EQ((baseOffset<MounterSm, MounterSmBase>()), 0);
  EXPECT_EQ((baseOffset<ParentMounterSm, MounterSmBase>()), 0);
  EXPECT_TRUE(std::is_abstract_v<MounterSmBase>);
}

TEST(MounterLayoutTest, BaseHoldsItsMembersInOrder) {
  struct Mirror : InotifyHandler, Brask::Debuggable {
    bool watching;
    std::unique_ptr<InotifyControl> control;
  };
  struct Probe : MounterSmBase {
    static void check() {
      ZORBE_EXPECT_SAME(watching);
      ZORBE_EXPECT_SAME(control);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(MounterSmBase), sizeof(Mirror));
}

TEST(MounterLayoutTest, RootWatcherHoldsItsMembersInOrder) {
  struct Mirror : MounterSmBase {
    std::string name;
    MounterBase* client;
    RootPath rootPath;
    ParentMounterSm parent;
  };
  struct Probe : MounterSm {
    static void check() {
      ZORBE_EXPECT_SAME(name);
      ZORBE_EXPECT_SAME(client);
      ZORBE_EXPECT_SAME(rootPath);
      ZORBE_EXPECT_SAME(parent);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(MounterSm), sizeof(Mirror));
}

TEST(MounterLayoutTest, ParentWatcherHoldsItsMembersInOrder) {
  struct Mirror : MounterSmBase {
    std::string parentPath;
    std::string childName;
    InotifyHandler* child;
  };
  struct Probe : ParentMounterSm {
    static void check() {
      ZORBE_EXPECT_SAME(parentPath);
      ZORBE_EXPECT_SAME(childName);
      ZORBE_EXPECT_SAME(child);
    }
  };
  Probe::check();
  EXPECT_EQ(sizeof(ParentMounterSm), sizeof(Mirror));
}

TEST(MounterLayoutTest, MasksAreConstantsOfTheLibrary) {
  const uint32_t* const rootMask = &MounterSm::MOUNTER_DEFAULT_MASK;
  const uint32_t* const parentMask = &ParentMounterSm::PARENT_MASK;
  EXPECT_EQ(*rootMask, 0x208u);
  EXPECT_EQ(*parentMask, 0x2c0u);
}

}  // namespace
}  // namespace Zorbe::Test
