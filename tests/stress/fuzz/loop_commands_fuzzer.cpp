// SPDX-License-Identifier: MIT
//
// Any sequence of calls to the bundled loop and to its controls, many of them from inside
// callbacks: every callback has to be one that a naive model expects, in its order, and none
// that it expects may be missing.
#include "stress/fuzz/fuzzer.h"
#include "stress/fuzz/loop_client.h"
#include "stress/fuzz/loop_model.h"
#include "support/kernel/fake_clock.h"
#include "support/loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <limits>
#include <memory>

namespace Zorbe::Test::Fuzz {
namespace {

using Brask::Linux::EventLoop;

class LoopCase {
 public:
  explicit LoopCase(Input& input) : input_(input) {
    for (int& file : files_) file = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    for (size_t i = 0; i < fds_.size(); ++i) renewFd(i);
    for (size_t i = 0; i < timers_.size(); ++i) renewTimer(i);
  }

  // Controls may be deleted before the loop or after it.
  ~LoopCase() {
    if (input_.flag()) loop_.reset();
    for (auto& probe : fds_) probe.reset();
    for (auto& probe : timers_) probe.reset();
    for (const int file : files_) EXPECT_EQ(::close(file), 0);
  }

  void run() {
    while (!input_.atEnd()) {
      const unsigned what = input_.below(kActions.end);
      what < kActions.first ? turn(what) : act(what);
      compare();
    }
  }

 private:
  static constexpr Actions kActions{7, 20};
  static constexpr size_t kStopper = LoopModel::kTimers - 1;

  void turn(unsigned what) {
    if (what == 0) return look();
    if (what == 1) return runUntilStopped();
    model_.beginTurn(Kernel::FakeClock::now());
    turnAndCheck(model_, [this] { EXPECT_EQ(loop_->turn(0), model_.callbacks() != 0); });
  }

  void runUntilStopped() {
    if (std::exchange(stopped_, false)) {
      model_.beginTurn(Kernel::FakeClock::now());
      loop_->run();
      EXPECT_EQ(model_.callbacks(), 0u);
      return;
    }
    start(kStopper, 0);
    model_.beginTurn(Kernel::FakeClock::now());
    turnAndCheck(model_, [this] {
      loop_->run();
      stopped_ = false;
    });
    cancel(kStopper);
  }

  // Polls the loop from outside.
  void look() {
    pollfd entry = {loop_->fd(), POLLIN, 0};
    EXPECT_GE(::poll(&entry, 1, 0), 0);
    if (model_.hasWork(Kernel::FakeClock::now())) EXPECT_NE(entry.revents & POLLIN, 0);
  }

  // What may be done from inside a callback, too.
  void act(unsigned what) {
    const size_t which = input_.below(LoopModel::kControls);
    switch (what) {
      case 7:
      case 8:
        return watch(which, files_[input_.below(files_.size())]);
      case 9:
        return unwatch(which);
      case 10:
        return input_.flag() ? renewFd(which) : renewTimer(input_.below(kStopper));
      case 11:
      case 12:
        return makeReady(files_[which]);
      case 13:
        return drain(files_[which]);
      case 14:
      case 15:
        return start(input_.below(kStopper), delay());
      case 16:
        return cancel(input_.below(kStopper));
      case 17:
        return Kernel::FakeClock::advance(static_cast<int64_t>(delay() * 1e9));
      case 18:
        return reuse(files_[which]);
      default:
        return stop();
    }
  }

  double delay() {
    constexpr std::array<double, 4> kSome = {0.0, 1e-9, 0.5, 1e6};
    const unsigned chosen = input_.byte();
    return chosen < kSome.size() ? kSome[chosen] : chosen;
  }

  void watch(size_t control, int fd) {
    fds_[control]->control->watch(fd);
    model_.watch(control, fd);
  }

  void unwatch(size_t control) {
    fds_[control]->control->unwatch();
    model_.unwatch(control);
  }

  void renewFd(size_t control) {
    model_.unwatch(control);
    fds_[control].reset();
    fds_[control] = std::make_unique<FdProbe>([this, control](int fd) {
      model_.fdEvent(control, fd);
      callback();
    });
  }

  void renewTimer(size_t timer) {
    model_.cancel(timer);
    timers_[timer].reset();
    timers_[timer] = std::make_unique<TimerProbe>([this, timer] {
      model_.timeout(timer);
      timer == kStopper ? stop() : callback();
    });
  }

  void start(size_t timer, double seconds) {
    const double odd = input_.flag() ? -1.0 : std::numeric_limits<double>::quiet_NaN();
    timers_[timer]->control->start(seconds > 0 ? seconds : input_.flag() ? 0.0 : odd);
    model_.start(timer, seconds, Kernel::FakeClock::now());
  }

  void cancel(size_t timer) {
    timers_[timer]->control->cancel();
    model_.cancel(timer);
  }

  void makeReady(int fd) {
    const uint64_t one = 1;
    EXPECT_EQ(::write(fd, &one, sizeof one), 8);
    model_.ready(fd);
  }

  void drain(int fd) {
    uint64_t count = 0;
    if (::read(fd, &count, sizeof count) < 0) EXPECT_EQ(errno, EAGAIN);
    model_.notReady(fd);
  }

  // A descriptor is closed and its number taken by another file, which another control
  // watches, before the old one is called.
  void reuse(int& file) {
    const int old = file;
    size_t former = LoopModel::kControls;
    for (size_t i = 0; i < fds_.size(); ++i) former = model_.watched(i) == old ? i : former;
    EXPECT_EQ(::close(old), 0);
    model_.notReady(old);
    if (former != LoopModel::kControls && input_.flag()) unwatch(former);
    file = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    EXPECT_EQ(file, old);
    watch(input_.below(fds_.size()), file);
    if (former != LoopModel::kControls && model_.watched(former) != file) unwatch(former);
  }

  void stop() {
    loop_->stop();
    stopped_ = true;
  }

  void callback() {
    callBack(input_, *loop_, 4, kActions, [this](unsigned what) { act(what); });
  }

  void compare() {
    for (size_t i = 0; i < fds_.size(); ++i) {
      EXPECT_EQ(fds_[i]->control->fd(), model_.watched(i));
    }
  }

  Input& input_;
  Kernel::FakeClock clock_;
  std::unique_ptr<EventLoop> loop_ = std::make_unique<EventLoop>();
  LoopModel model_;
  bool stopped_ = false;
  std::array<int, 4> files_;
  std::array<std::unique_ptr<FdProbe>, LoopModel::kControls> fds_;
  std::array<std::unique_ptr<TimerProbe>, LoopModel::kTimers> timers_;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(LoopCase)
