// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/table/threaded.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

#include "core/root.h"
#include "foundation/log.h"
#include "foundation/unique_fd.h"
#include "memory/place.h"
#include "threaded/fork_member.h"
#include "threaded/lock_wait.h"

namespace Zorbe::Table {

namespace {

using Brask::Linux::EventLoop;

// Signals are for the program's own threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    ::sigfillset(&all);
    static_cast<void>(::pthread_sigmask(SIG_SETMASK, &all, &before_));
  }
  ~SignalsBlocked() { static_cast<void>(::pthread_sigmask(SIG_SETMASK, &before_, nullptr)); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace

/// The thread waits for the loop's descriptor without the mutex and turns the loop under it. Calls
/// of the writer hold the mutex, too.
class ServedWriter::Impl : public ForkMember {
 public:
  Impl(const std::string& name, const Options& options, const Schema& schema)
      : name_(name), log_(handlerOf(options)), stop_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (stop_.get() < 0) failCall({"", name}, "eventfd()", name, errno);
    loop_ = std::make_unique<EventLoop>(EventLoop::Unbound{});
    const EventLoop::Use use(*loop_);
    Options own = options;
    own.log = &log_;
    core_ = becomeWriter(name, own, schema, log_);
    join();
    startThread();
  }

  ~Impl() override {
    if (isParents()) {
      leaveAlone();
    } else {
      leave();
      stop();
    }
  }

  /// Runs `act` with the core, under the mutex.
  template <class Act>
  auto with(Act act) {
    check(name_);
    // A program that calls without a pause would hardly ever leave the mutex to the thread.
    if (serverWaits_.load(std::memory_order_relaxed)) std::this_thread::yield();
    const std::lock_guard<std::mutex> lock(mutex_);
    const EventLoop::Use use(*loop_);
    return act(*core_);
  }

  void leaveToParent() noexcept override { core_->leaveToParent(); }

 private:
  void startThread() {
    const SignalsBlocked blocked;
    try {
      thread_ = std::thread([this, loopFd = loop_->fd()] { serve(loopFd); });
    } catch (const std::system_error& failure) {
      failCall({"", name_}, "pthread_create()", name_, failure.code().value());
    }
  }

  void stop() {
    stopping_.store(true, std::memory_order_release);
    const uint64_t one = 1;
    static_cast<void>(::write(stop_.get(), &one, sizeof one) == sizeof one);  // was zero
    thread_.join();
  }

  void serve(int loopFd) {
    pollfd waiting[] = {{loopFd, POLLIN, 0}, {stop_.get(), POLLIN, 0}};
    while (!stopping_.load(std::memory_order_acquire)) {
      static_cast<void>(::poll(waiting, 2, -1));  // a failure only causes a turn
      serverWaits_.store(true, std::memory_order_relaxed);
      const std::lock_guard<std::mutex> lock(mutex_);
      serverWaits_.store(false, std::memory_order_relaxed);
      turn();
    }
  }

  // An exception of a callback concerns one reader or one attempt; the next turn continues.
  void turn() {
    try {
      loop_->turn(0);
    } catch (const std::exception& failure) {
      ZORBE_LOG_NOEXCEPT(log_, kFailure,
                         "ServedWriter::turn() " << name_ << ": " << failure.what());
    }
  }

  // In a child process: it does not have the thread, and the parent shares the loop's descriptors
  // and would be affected by changes to them.
  void leaveAlone() {
    static_cast<void>(core_.release());
    static_cast<void>(loop_.release());
    thread_.detach();
  }

  std::string name_;
  MutableHandler log_;
  UniqueFd stop_;
  std::mutex mutex_;
  std::atomic<bool> stopping_{false};
  std::atomic<bool> serverWaits_{false};
  std::unique_ptr<EventLoop> loop_;
  std::unique_ptr<WriterCore> core_;
  std::thread thread_;
};

ServedWriter::ServedWriter(const std::string& name, const Options& options, const Schema& schema)
    : impl_(std::make_unique<Impl>(name, options, schema)) {}

ServedWriter::~ServedWriter() = default;

void ServedWriter::put(const uint64_t* key, const void* value) {
  impl_->with([&](WriterCore& core) { core.put(key, value); });
}

bool ServedWriter::erase(const uint64_t* key) {
  return impl_->with([&](WriterCore& core) { return core.erase(key); });
}

void ServedWriter::publish() {
  impl_->with([](WriterCore& core) { core.publish(); });
}

bool ServedWriter::get(const uint64_t* key, void* value) const {
  return impl_->with([&](const WriterCore& core) { return core.get(key, value); });
}

bool ServedWriter::scan(uint64_t& cursor, uint64_t* key, void* value) const {
  return impl_->with([&](const WriterCore& core) { return core.scan(cursor, key, value); });
}

uint64_t ServedWriter::size() const {
  return impl_->with([](const WriterCore& core) { return core.size(); });
}

void ServedWriter::setOrigin(Origin origin) {
  impl_->with([&](WriterCore& core) { core.setOrigin(origin); });
}

}  // namespace Zorbe::Table
