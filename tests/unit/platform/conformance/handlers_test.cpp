// SPDX-License-Identifier: MIT
//
// What holds for the handlers of all kinds of controls.
#include "conformance/fixture.h"

#include <sys/inotify.h>

#include <thread>

namespace Zorbe::Conformance {
namespace {

/// A control of any kind, and its handler, which outlives it.
class Subject : private Test::NonCopyable {
 public:
  virtual ~Subject() = default;

  /// Has the control watch something that is ready, so that the handler is called at least once.
  virtual void makeReady() = 0;
  virtual void deleteControl() = 0;

  int calls = 0;
  std::function<void()> onCall;

 protected:
  void called() {
    ++calls;
    if (const auto action = onCall) action();
  }
};

class DescriptorSubject : public Subject {
 public:
  void makeReady() override {
    probe_.control->watch(pair_.here);
    pair_.makeReady();
  }
  void deleteControl() override { probe_.control.reset(); }

 private:
  Pair pair_;
  FdProbe probe_{[this](int) { called(); }};
};

class TimerSubject : public Subject {
 public:
  void makeReady() override { probe_.control->start(0.0); }
  void deleteControl() override { probe_.control.reset(); }

 private:
  TimerProbe probe_{[this] { called(); }};
};

class WatchSubject : public Subject {
 public:
  void makeReady() override {
    probe_.control->addWatch(directory_.path, IN_CREATE);
    touch(directory_.path + "/one");
    touch(directory_.path + "/two");
  }
  void deleteControl() override { probe_.control.reset(); }

 private:
  Directory directory_;
  InotifyProbe probe_{[this] { called(); }};
};

template <class Kind>
std::unique_ptr<Subject> make() {
  return std::make_unique<Kind>();
}

struct Kind {
  const char* name;
  std::unique_ptr<Subject> (*make)();
};

constexpr Kind kKinds[] = {{"descriptor", make<DescriptorSubject>},
                           {"timer", make<TimerSubject>},
                           {"watch", make<WatchSubject>}};

// Handlers live until the end of the test, for a platform that calls them when it must not.
class HandlerConformance : public LoopConformance {
 protected:
  Subject& add(const Kind& kind) {
    subjects_.push_back(kind.make());
    return *subjects_.back();
  }

  // The first of the two that is called deletes both controls.
  void expectOneCall(const Kind& one, const Kind& other) {
    SCOPED_TRACE(std::string(one.name) + " and " + other.name);
    Subject &first = add(one), &second = add(other);
    first.onCall = second.onCall = [&first, &second] {
      first.deleteControl();
      second.deleteControl();
    };
    first.makeReady();
    second.makeReady();
    settle();
    EXPECT_EQ(1, first.calls + second.calls);
  }

 private:
  std::vector<std::unique_ptr<Subject>> subjects_;
};

// A handler of several descriptors, which keeps the number of each that was ready.
struct Recorder : Brask::Platform::FdEventHandler {
  void fdEvent(int fd) override { ready.push_back(fd); }
  std::vector<int> ready;
};

bool has(const std::vector<int>& all, int one) {
  for (const int each : all) {
    if (each == one) return true;
  }
  return false;
}

}  // namespace

TEST_F(HandlerConformance, ADeletedControlCallsNoMore) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Subject& subject = add(kind);
    subject.makeReady();
    subject.deleteControl();
    settle();
    EXPECT_EQ(0, subject.calls);
  }
}

TEST_F(HandlerConformance, MayDeleteItsOwnControl) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Subject& subject = add(kind);
    subject.onCall = [&subject] { subject.deleteControl(); };
    subject.makeReady();
    settle();
    EXPECT_EQ(1, subject.calls);
  }
}

TEST_F(HandlerConformance, MayDeleteAnotherControlThatIsReady) {
  for (const Kind& one : kKinds) {
    for (const Kind& other : kKinds) expectOneCall(one, other);
  }
}

TEST_F(HandlerConformance, MayMakeControls) {
  for (const Kind& outer : kKinds) {
    for (const Kind& inner : kKinds) {
      SCOPED_TRACE(std::string(outer.name) + " makes " + inner.name);
      Subject& maker = add(outer);
      Subject* made = nullptr;
      maker.onCall = [&made, &inner, this] {
        if (made != nullptr) return;
        made = &add(inner);
        made->makeReady();
      };
      maker.makeReady();
      settle();
      ASSERT_NE(nullptr, made);
      EXPECT_GE(made->calls, 1);
    }
  }
}

TEST_F(HandlerConformance, AreCalledOnTheThreadThatTurnsTheLoop) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    Subject& subject = add(kind);
    std::thread::id thread;
    subject.onCall = [&thread] { thread = std::this_thread::get_id(); };
    subject.makeReady();
    settle();
    EXPECT_EQ(std::this_thread::get_id(), thread);
  }
}

TEST_F(HandlerConformance, AreCalledOneAtATime) {
  int calling = 0, nested = 0;
  for (const Kind& outer : kKinds) {
    for (const Kind& inner : kKinds) {
      Subject &first = add(outer), &second = add(inner);
      second.onCall = [&calling, &nested] { nested += calling; };
      first.onCall = [&] {
        ++calling;
        if (first.calls == 1) second.makeReady();
        --calling;
      };
      first.makeReady();
      settle();
    }
  }
  EXPECT_EQ(0, nested);
}

TEST_F(HandlerConformance, MayHaveSeveralControls) {
  Recorder handler;
  Pair one, two;
  const std::unique_ptr<Brask::Platform::FdControl> first{Brask::Platform::getFdControl(&handler)};
  const std::unique_ptr<Brask::Platform::FdControl> second{Brask::Platform::getFdControl(&handler)};
  first->watch(one.here);
  second->watch(two.here);
  one.makeReady();
  two.makeReady();
  settle();
  EXPECT_TRUE(has(handler.ready, one.here));
  EXPECT_TRUE(has(handler.ready, two.here));
}

}  // namespace Zorbe::Conformance
