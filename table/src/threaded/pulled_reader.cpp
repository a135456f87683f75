// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <poll.h>
#include <time.h>
#include <zorbe/table/threaded.h>

#include <algorithm>
#include <cerrno>

#include "core/timer.h"
#include "memory/place.h"
#include "threaded/fork_member.h"

namespace Zorbe::Table {

namespace {

using Brask::Linux::EventLoop;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

// How often the loop turns for a program that only calls next(), which then still follows the next
// writer and the directory.
constexpr std::chrono::milliseconds kTurn{20};

constexpr nanoseconds kDay = std::chrono::hours(24);

}  // namespace

class PulledReader::Impl : public ForkMember {
 public:
  Impl(const std::string& name, const Options& options, const Schema& schema) : name_(name) {
    loop_ = std::make_unique<EventLoop>(EventLoop::Unbound{});
    const EventLoop::Use use(*loop_);
    core_ = std::make_unique<ReaderCore>(name, options, schema);
    ready_ = std::make_unique<Timer<Impl>>(*this, &Impl::nothing);
    loopFd_ = loop_->fd();
    join();
  }

  ~Impl() override {
    if (isParents()) {
      leaveAlone();
    } else {
      leave();
    }
  }

  Woken waitFor(nanoseconds timeout) {
    check(name_);
    const bool forEver = timeout > kDay;
    const auto deadline = Clock::now() + std::min(timeout, kDay);
    if (isTurnDue()) turn();
    while (!core_->hasNext()) {
      const nanoseconds left = forEver ? kDay : deadline - Clock::now();
      const bool isLast = left <= nanoseconds(0);
      const bool isInterrupted = !isLast && !sleep(left);
      turn();
      if (core_->hasNext()) break;
      if (isLast) return Woken::kTimeout;
      if (isInterrupted) return Woken::kInterrupted;
    }
    return Woken::kReady;
  }

  std::optional<ReaderCore::Change> next(uint64_t* key, void* value) {
    check(name_);
    std::optional<ReaderCore::Change> change = core_->next(key, value);
    if (change) return change;
    if (isTurnDue()) {
      turn();
      change = core_->next(key, value);
    }
    if (!change && isPolled_) signalReadiness();
    return change;
  }

  int fd() {
    check(name_);
    isPolled_ = true;
    signalReadiness();
    return loopFd_;
  }

  void process() {
    check(name_);
    turn();
    if (isPolled_) signalReadiness();
  }

  bool refresh() {
    check(name_);
    const EventLoop::Use use(*loop_);
    const bool isOther = core_->refresh();
    if (isPolled_) signalReadiness();
    return isOther;
  }

  const ReaderCore& core() const {
    check(name_);
    return *core_;
  }

  void leaveToParent() noexcept override { core_->leaveToParent(); }

 private:
  void nothing() {}

  bool isTurnDue() const { return Clock::now() - lastTurn_ >= kTurn; }

  void turn() {
    loop_->turn(0);
    lastTurn_ = Clock::now();
  }

  // Until the loop has something to do. False when a signal came.
  bool sleep(nanoseconds time) const {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    const timespec left{static_cast<time_t>(seconds.count()),
                        static_cast<long>((time - seconds).count())};
    pollfd waiting{loopFd_, POLLIN, 0};
    if (::ppoll(&waiting, 1, &left, nullptr) >= 0) return true;
    const int error = errno;
    if (error == EINTR) return false;
    failCall({"", name_}, "ppoll()", name_, error);
  }

  // A timer that has expired keeps the descriptor readable while there is something to deliver.
  void signalReadiness() {
    if (core_->hasNext()) {
      ready_->startIfIdle(0.0);
    } else {
      ready_->cancel();
    }
  }

  // In a child process: the parent shares the loop's descriptors and would be affected by
  // changes to them.
  void leaveAlone() {
    static_cast<void>(ready_.release());
    static_cast<void>(core_.release());
    static_cast<void>(loop_.release());
  }

  std::string name_;
  int loopFd_ = -1;
  std::unique_ptr<EventLoop> loop_;
  std::unique_ptr<ReaderCore> core_;
  std::unique_ptr<Timer<Impl>> ready_;
  bool isPolled_ = false;  // fd() was called
  Clock::time_point lastTurn_{};
};

PulledReader::PulledReader(const std::string& name, const Options& options, const Schema& schema)
    : impl_(std::make_unique<Impl>(name, options, schema)) {}

PulledReader::~PulledReader() = default;

PulledReader::Woken PulledReader::waitFor(nanoseconds timeout) {
  return impl_->waitFor(timeout);
}

bool PulledReader::wait(nanoseconds timeout) {
  return impl_->waitFor(timeout) == Woken::kReady;
}

std::optional<ReaderCore::Change> PulledReader::next(uint64_t* key, void* value) {
  return impl_->next(key, value);
}

int PulledReader::fd() const {
  return impl_->fd();
}

void PulledReader::process() {
  impl_->process();
}

bool PulledReader::refresh() {
  return impl_->refresh();
}

State PulledReader::state() const {
  return impl_->core().state();
}

Info PulledReader::info() const {
  return impl_->core().info();
}

std::optional<Status> PulledReader::status() const {
  return impl_->core().status();
}

const Schema& PulledReader::schema() const {
  return impl_->core().schema();
}

ViewCore PulledReader::view() const {
  return impl_->core().view();
}

}  // namespace Zorbe::Table
