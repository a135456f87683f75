// SPDX-License-Identifier: MIT
//
// The platform that the library is linked with here: controls that the scheduler fires, and
// directories and namespaces of the simulated world.
#include <brask/platform.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>
#include <sys/inotify.h>

#include <cerrno>
#include <utility>

#include "stress/simulation/world.h"
#include "support/noncopyable.h"

const char* DEFAULT_NS = "default";

namespace Zorbe::Test::Simulation {
namespace {

class Source : public EventSource, private NonCopyable {
 public:
  Source() : process_(*Process::running()) { process_.add(this); }
  ~Source() override { process_.remove(this); }

 protected:
  World& world() const { return process_.world(); }
  Process& process_;
};

class SimulatedFdControl final : public Brask::Platform::FdControl, private Source {
 public:
  explicit SimulatedFdControl(Brask::Platform::FdEventHandler* handler) : handler_(handler) {}

  void watch(int fd) override {
    fd_ = fd;
    const Kernel::SocketRef socket = process_.socket(fd);
    if (socket) socket->nonBlocking = true;
    watched_ = socket;
  }
  void unwatch() override {
    fd_ = -1;
    watched_.reset();
  }
  int fd() override { return fd_; }

 private:
  // Bound to the socket, not to its number, which may belong to another one by now.
  bool isReady(const World& w) const override {
    const Kernel::SocketRef socket = watched_.lock();
    return socket && w.sockets.readable(*socket);
  }
  void fire() override { handler_->fdEvent(fd_); }
  std::string describe() const override {
    return "descriptor " + std::to_string(fd_ - Process::kFirstDescriptor);
  }

  Brask::Platform::FdEventHandler* handler_;
  int fd_ = -1;
  std::weak_ptr<Kernel::Socket> watched_;
};

class SimulatedTimer final : public Brask::Platform::TimerControl, private Source {
 public:
  explicit SimulatedTimer(Brask::Platform::TimeoutHandler* handler) : handler_(handler) {}

  void start(double seconds) override { deadline_ = world().clock.after(seconds); }
  void cancel() override { deadline_ = -1; }

 private:
  bool isReady(const World& w) const override {
    return deadline_ >= 0 && deadline_ <= w.clock.now();
  }
  int64_t deadline() const override { return deadline_; }
  void fire() override {
    deadline_ = -1;
    handler_->timeout();
  }
  std::string describe() const override { return "a timer"; }

  Brask::Platform::TimeoutHandler* handler_;
  int64_t deadline_ = -1;
};

// Small, so that processes that do not run for a while lose events.
constexpr std::size_t kQueueLimit = 8;
constexpr uint32_t kEnd = IN_DELETE_SELF | IN_IGNORED;

/// Watches as the bundled loop does: the end of a watch is never lost, even if its event is.
class SimulatedInotify final : public Brask::Platform::InotifyControl, private Source {
 public:
  explicit SimulatedInotify(Brask::Platform::InotifyHandler* handler) : handler_(handler) {
    world().files.attach(&inotify_);
  }
  ~SimulatedInotify() override { world().files.detach(&inotify_); }

  void addWatch(std::string path, uint32_t mask) override {
    process_.pause();
    if (process_.isDead()) return;
    const uint64_t inode = world().files.inode(path);
    // Watching the same directory again drops no event.
    if (inode == 0 || wd_ == 0 || inotify_.find(inode) != wd_) removeWatch();
    path_ = std::move(path);
    if (inode == 0) {
      failure_ = "inotify_add_watch() " + path_;
    } else {
      wd_ = inotify_.add(inode, mask);
    }
  }
  void removeWatch() override {
    static_cast<void>(inotify_.remove(wd_));
    inotify_.clear();
    wd_ = 0;
    failure_.clear();
    lost_ = false;
  }
  std::string path() override { return path_; }

 private:
  bool isReady(const World&) const override {
    return !failure_.empty() || lost_ || !inotify_.isEmpty();
  }
  void fire() override {
    if (!failure_.empty()) return handler_->inotifyError(std::exchange(failure_, {}));
    if (inotify_.isEmpty()) return end();
    const Kernel::InotifyEvent event = inotify_.take();
    if ((event.mask & kEnd) != 0) return end();
    if ((event.mask & IN_Q_OVERFLOW) == 0) return handler_->inotifyChanged(event.name);
    lost_ = inotify_.watches().count(wd_) == 0;
    handler_->inotifyError("events were lost");
  }
  void end() {
    removeWatch();
    handler_->inotifyDeleted();
  }
  std::string describe() const override { return "events of " + path_; }

  Brask::Platform::InotifyHandler* handler_;
  Kernel::Inotify inotify_{kQueueLimit};
  std::string path_;
  int wd_ = 0;
  std::string failure_;
  bool lost_ = false;  // the end of the watch, with other events
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
  process.world().files.makeDirectories(path);
  return 0;
}

int setnsByName(const char* /*name*/, int /*nstype*/) {
  return 0;
}

const char* netnsGetTracebuffer() {
  return "";
}
