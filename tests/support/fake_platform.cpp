// SPDX-License-Identifier: MIT
#include "support/fake_platform.h"

#include "fault/fault.h"
#include "support/noncopyable.h"

#include <brask/platform.h>
#include <fcntl.h>
#include <mem/mkpath.h>
#include <nsutil/nsutil.h>
#include <sys/stat.h>

#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

const char* DEFAULT_NS = "default";

namespace Zorbe::Test {
namespace {

FakePlatform* installed = nullptr;

// The control as the library sees it: forwards each call to the test's end, and reports its
// deletion there.
template <class Control, class Fake>
class End : public Control, private NonCopyable {
 public:
  explicit End(std::shared_ptr<Fake> fake) : fake_(std::move(fake)) {}
  ~End() override { fake_->remove(); }

 protected:
  std::shared_ptr<Fake> fake_;
};

[[noreturn]] void refuse(int fd, int error) {
  throw std::system_error(error, std::generic_category(), "watch " + std::to_string(fd));
}

// As the contract requires; close-on-exec as the bundled loop does.
void prepare(int fd) {
  const Fault::Bypass bypass;
  const int status = fcntl(fd, F_GETFL);
  if (status < 0 || fcntl(fd, F_SETFL, status | O_NONBLOCK) < 0) refuse(fd, errno);
  const int flags = fcntl(fd, F_GETFD);
  if (flags < 0 || fcntl(fd, F_SETFD, flags | FD_CLOEXEC) < 0) refuse(fd, errno);
}

struct FdEnd : End<Brask::Platform::FdControl, FakeFdControl> {
  using End::End;
  void watch(int fd) override {
    fake_->record("watch " + std::to_string(fd));
    if (const int failure = FakePlatform::current().watchFailure()) refuse(fd, failure);
    prepare(fd);
    fake_->watch(fd);
  }
  void unwatch() override { fake_->unwatch(); }
  int fd() override { return fake_->answer(); }
};

struct TimerEnd : End<Brask::Platform::TimerControl, FakeTimerControl> {
  using End::End;
  void start(double seconds) override { fake_->start(seconds); }
  void cancel() override { fake_->cancel(); }
};

struct InotifyEnd : End<Brask::Platform::InotifyControl, FakeInotifyControl> {
  using End::End;
  void addWatch(std::string path, uint32_t mask) override { fake_->addWatch(path, mask); }
  void removeWatch() override { fake_->removeWatch(); }
  std::string path() override { return fake_->answer(); }
};

bool isDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

// mkdir(2) of every component, with the umask.
int makeDirectories(const std::string& path, unsigned mode) {
  for (size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1)) {
    if (mkdir(path.substr(0, end).c_str(), mode) != 0 && errno != EEXIST) return -1;
  }
  if (mkdir(path.c_str(), mode) == 0) return 0;
  if (errno != EEXIST) return -1;
  if (isDirectory(path)) return 0;
  errno = ENOTDIR;
  return -1;
}

template <class Fake, class Handler>
std::shared_ptr<Fake> addTo(std::deque<std::shared_ptr<Fake>>& fakes, const char* kind,
                            const std::shared_ptr<Journal>& journal, Handler* handler) {
  const std::string name = kind + ("#" + std::to_string(fakes.size()));
  fakes.push_back(std::make_shared<Fake>(name, journal, handler));
  return fakes.back();
}

}  // namespace

FakePlatform::FakePlatform() {
  if (installed != nullptr) throw std::logic_error("there is a FakePlatform already");
  installed = this;
}

FakePlatform::~FakePlatform() {
  installed = nullptr;
  DEFAULT_NS = "default";
}

FakePlatform& FakePlatform::current() {
  if (installed == nullptr) throw std::logic_error("the test has no FakePlatform");
  return *installed;
}

Journal FakePlatform::takeCalls() {
  return std::exchange(*journal_, {});
}

void FakePlatform::failWatch(int error, unsigned occurrence) {
  watchError_ = error;
  watchesUntilFailure_ = occurrence;
}

void FakePlatform::letSetnsFail(std::optional<std::string> tracebuffer) {
  setnsResult_ = -1;
  tracebuffer_ = std::move(tracebuffer);
}

std::shared_ptr<FakeFdControl> FakePlatform::addFd(Brask::Platform::FdEventHandler* handler) {
  return addTo(fds_, "fd", journal_, handler);
}

std::shared_ptr<FakeTimerControl> FakePlatform::addTimer(Brask::Platform::TimeoutHandler* handler) {
  return addTo(timers_, "timer", journal_, handler);
}

std::shared_ptr<FakeInotifyControl> FakePlatform::addInotify(
    Brask::Platform::InotifyHandler* handler) {
  return addTo(inotifies_, "inotify", journal_, handler);
}

int FakePlatform::watchFailure() {
  if (watchesUntilFailure_ == 0) return 0;
  return --watchesUntilFailure_ == 0 ? watchError_ : 0;
}

int FakePlatform::setnsByName(const char* name, int nstype) {
  std::ostringstream text;
  text << name << " 0x" << std::hex << nstype;
  setnsCalls_.push_back(text.str());
  return setnsResult_;
}

const char* FakePlatform::tracebuffer() {
  ++tracebufferReads_;
  return tracebuffer_ ? tracebuffer_->c_str() : nullptr;
}

int FakePlatform::mkpath(const std::string& path, unsigned mode) {
  std::ostringstream text;
  text << path << " 0" << std::oct << mode;
  mkpathCalls_.push_back(text.str());
  if (mkpathError_ != 0) {
    errno = mkpathError_;
    return -1;
  }
  const Fault::Bypass bypass;
  if (makeDirectories(path, mode) != 0) return -1;
  errno = EXDEV;  // says nothing when a call succeeds
  return 0;
}

}  // namespace Zorbe::Test

using Zorbe::Test::FakePlatform;

namespace Brask::Platform {

FdControl* getFdControl(FdEventHandler* handler) {
  return new Zorbe::Test::FdEnd(FakePlatform::current().addFd(handler));
}

TimerControl* getTimerControl(TimeoutHandler* handler) {
  return new Zorbe::Test::TimerEnd(FakePlatform::current().addTimer(handler));
}

InotifyControl* getInotifyControl(InotifyHandler* handler) {
  return new Zorbe::Test::InotifyEnd(FakePlatform::current().addInotify(handler));
}

}  // namespace Brask::Platform

namespace Mem {

int mkpath(const std::string& path, unsigned mode) {
  return FakePlatform::current().mkpath(path, mode);
}

}  // namespace Mem

int setnsByName(const char* name, int nstype) {
  return FakePlatform::current().setnsByName(name, nstype);
}

const char* netnsGetTracebuffer(void) {
  return FakePlatform::current().tracebuffer();
}
