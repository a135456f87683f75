// SPDX-License-Identifier: MIT
//
// Any events in any portions from an inotify descriptor, directories that are removed, made again
// and replaced, alone or with the one above, queues that overflow, limits, and clients that add and
// remove watches from inside callbacks: each control gets exactly what a naive model expects.
#include "stress/fuzz/fuzzer.h"
#include "stress/fuzz/inotify_model.h"
#include "stress/fuzz/loop_client.h"

#include <brask/platform.h>
#include <sys/inotify.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace Zorbe::Test::Fuzz {
namespace {

struct Probe : Brask::Platform::InotifyHandler {
  Probe(InotifyModel& expected, size_t number, std::function<void()> then)
      : model(expected), index(number), action(std::move(then)) {}
  void inotifyError(const std::string& what) override {
    after([&] { model.error(index, what); });
  }
  void inotifyDeleted() override {
    after([&] { model.deleted(index); });
  }
  void inotifyChanged(const std::string& what) override {
    after([&] { model.changed(index, what); });
  }
  template <class Check>
  void after(Check check) {
    check();
    const auto own = action;  // it may delete this probe
    own();
  }

  InotifyModel& model;
  size_t index;
  std::function<void()> action;
  std::unique_ptr<Brask::Platform::InotifyControl> control{
      Brask::Platform::getInotifyControl(this)};
};

class InotifyCase {
 public:
  explicit InotifyCase(Input& input) : input_(input) {
    for (size_t i = 0; i < probes_.size(); ++i) renew(i);
  }

  void run() {
    while (!input_.atEnd()) {
      const unsigned what = input_.below(kActions.end);
      what < kActions.first ? static_cast<void>(turn()) : act(what);
      model_.checkKernel();
    }
    // What is queued is delivered, in one more turn after each that throws. A quiet turn may leave
    // events to the next one.
    for (unsigned quiet = 0; quiet < 2;) {
      quiet = turn() || !kernel_.isEmpty() ? 0 : quiet + 1;
    }
    model_.checkEnds();
  }

 private:
  static constexpr Actions kActions{4, 16};

  bool turn() {
    model_.beginTurn();
    bool ran = true;
    turnAndCheck(model_, [&] { ran = loop_.turn(0); });
    return ran;
  }

  // What may be done from inside a callback, too.
  void act(unsigned what) {
    const size_t which = input_.below(InotifyModel::kControls);
    switch (what) {
      case 4:
      case 5:
      case 6:
        return watch(which, input_.below(Kernel::FakeInotify::kDirectories));
      case 7:
        return unwatch(which);
      case 8:
        return renew(which);
      case 9:
      case 10:
        return kernel_.change(which, bits() & IN_ALL_EVENTS, input_.fileName());
      case 11:
        return invent(input_.below(8));
      case 12:
        return input_.flag() ? kernel_.remove(which) : kernel_.make(which);
      case 13:
        return input_.flag() ? kernel_.unmount(which) : kernel_.replace(which);
      case 14:
        return limit();
      default:
        return kernel_.overflow();
    }
  }

  // An event that no mask selects, of a watch that need not exist.
  void invent(unsigned wd) {
    const uint32_t mask = bits() & IN_ALL_EVENTS;
    kernel_.queue({static_cast<int>(wd), mask | IN_ISDIR, input_.fileName(), 0, 0});
  }

  void limit() {
    const unsigned flags = input_.byte();
    kernel_.isFull = (flags & 1) != 0;
    kernel_.reportParentFirst((flags & 2) != 0);
    kernel_.mostAtOnce = 1 + input_.below(100);
  }

  uint32_t bits() {
    constexpr std::array<uint32_t, 8> kAll = {IN_CLOSE_WRITE, IN_DELETE,    IN_MOVED_FROM,
                                              IN_CREATE,      IN_MOVE_SELF, IN_DELETE_SELF,
                                              IN_ONESHOT,     IN_MASK_ADD};
    uint32_t mask = 0;
    const unsigned chosen = input_.byte();
    for (size_t i = 0; i < kAll.size(); ++i) mask |= (chosen >> i & 1) != 0 ? kAll[i] : 0;
    return mask;
  }

  void watch(size_t control, size_t directory) {
    const uint32_t mask = bits();
    const std::string path = Kernel::FakeInotify::pathOf(directory);
    probes_[control]->control->addWatch(path, mask);
    model_.add(control, directory, mask);
    EXPECT_EQ(probes_[control]->control->path(), path);
  }

  void unwatch(size_t control) {
    probes_[control]->control->removeWatch();
    model_.remove(control);
  }

  void renew(size_t control) {
    model_.remove(control);
    probes_[control].reset();
    probes_[control] = std::make_unique<Probe>(model_, control, [this] { callback(); });
  }

  void callback() {
    callBack(input_, loop_, 3, kActions, [this](unsigned what) { act(what); });
  }

  Input& input_;
  Kernel::FakeInotify kernel_;
  Brask::Linux::EventLoop loop_;
  InotifyModel model_{kernel_};
  std::array<std::unique_ptr<Probe>, InotifyModel::kControls> probes_;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(InotifyCase)
