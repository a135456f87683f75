// SPDX-License-Identifier: MIT
//
// The platform that the library is linked with here: controls that wait for the scheduler,
// and directories and namespaces that are none of this machine's.
#include <brask/platform.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>

#include <cerrno>
#include <utility>

#include "stress/simulation/world.h"

const char* DEFAULT_NS = "default";

namespace Zorbe::Test::Simulation {
namespace {

class Source : public EventSource {
 public:
  Source() : process_(*Process::running()) { process_.add(this); }
  ~Source() override { process_.remove(this); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

 protected:
  World& world() const { return process_.world(); }
  Process& process_;
};

class SimulatedFdControl final : public Brask::Platform::FdControl, private Source {
 public:
  explicit SimulatedFdControl(Brask::Platform::FdEventHandler* handler) : handler_(handler) {}

  void watch(int fd) override {
    fd_ = fd;
    const SocketRef socket = process_.socket(fd);
    if (socket) socket->nonBlocking = true;
    watched_ = socket;
  }
  void unwatch() override {
    fd_ = -1;
    watched_.reset();
  }
  int fd() override { return fd_; }

 private:
  // Keyed by what was open, not by its number, which may be another's by now.
  bool isReady(const World& w) const override {
    const SocketRef socket = watched_.lock();
    return socket && w.sockets.readable(*socket);
  }
  void fire() override { handler_->fdEvent(fd_); }
  std::string describe() const override {
    return "descriptor " + std::to_string(fd_ - Process::firstDescriptor);
  }

  Brask::Platform::FdEventHandler* handler_;
  int fd_ = -1;
  std::weak_ptr<Socket> watched_;
};

class SimulatedTimer final : public Brask::Platform::TimerControl, private Source {
 public:
  explicit SimulatedTimer(Brask::Platform::TimeoutHandler* handler) : handler_(handler) {}

  void start(double seconds) override {
    deadline_ = world().now() + static_cast<int64_t>(seconds * 1e6);
  }
  void cancel() override { deadline_ = -1; }

 private:
  bool isReady(const World& w) const override { return deadline_ >= 0 && deadline_ <= w.now(); }
  int64_t deadline() const override { return deadline_; }
  void fire() override {
    deadline_ = -1;
    handler_->timeout();
  }
  std::string describe() const override { return "a timer"; }

  Brask::Platform::TimeoutHandler* handler_;
  int64_t deadline_ = -1;
};

class SimulatedInotify final : public Brask::Platform::InotifyControl, private Source {
 public:
  explicit SimulatedInotify(Brask::Platform::InotifyHandler* handler) : handler_(handler) {}
  ~SimulatedInotify() override { world().directory.unwatch(watch_); }

  void addWatch(std::string path, uint32_t mask) override {
    process_.pause();
    if (!process_.isDead()) world().directory.watch(watch_, path, mask);
  }
  void removeWatch() override { world().directory.unwatch(watch_); }
  std::string path() override { return watch_.path; }

 private:
  bool isReady(const World&) const override { return !watch_.notices.empty(); }
  void fire() override {
    const Notice notice = std::move(watch_.notices.front());
    watch_.notices.pop_front();
    if (notice.kind == Notice::Kind::changed) return handler_->inotifyChanged(notice.what);
    if (notice.kind == Notice::Kind::deleted) return handler_->inotifyDeleted();
    handler_->inotifyError(notice.what);
  }
  std::string describe() const override { return "news of " + watch_.path; }

  Brask::Platform::InotifyHandler* handler_;
  Watch watch_;
};

}  // namespace
}  // namespace Zorbe::Test::Simulation

namespace Brask::Platform {

using namespace Zorbe::Test::Simulation;

FdControl* getFdControl(FdEventHandler* handler) {
  return new SimulatedFdControl(handler);
}
TimerControl* getTimerControl(TimeoutHandler* handler) {
  return new SimulatedTimer(handler);
}
InotifyControl* getInotifyControl(InotifyHandler* handler) {
  return new SimulatedInotify(handler);
}

}  // namespace Brask::Platform

int Mem::mkpath(const std::string& path, unsigned /*mode*/) {
  Zorbe::Test::Simulation::Process& process = *Zorbe::Test::Simulation::Process::running();
  process.pause();
  if (process.isDead()) {
    errno = ENOSPC;
    return -1;
  }
  process.world().directory.makeDirectories(path);
  return 0;
}

int setnsByName(const char* /*name*/, int /*nstype*/) {
  return 0;
}

const char* netnsGetTracebuffer() {
  return "";
}
