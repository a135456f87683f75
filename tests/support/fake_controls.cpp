// SPDX-License-Identifier: MIT
#include "support/fake_controls.h"

#include "fault/fault.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>
#include <system_error>

namespace Zorbe::Test {
namespace {

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

}  // namespace

FakeControl::FakeControl(std::string name, std::shared_ptr<Journal> journal)
    : name_(std::move(name)), journal_(std::move(journal)) {
  record("create");
}

void FakeControl::record(const std::string& call) {
  journal_->push_back(name_ + " " + call);
}

void FakeControl::remove() {
  record("delete");
  deleted_ = true;
}

bool FakeControl::mayFire(bool ready, const char* reason) const {
  if (deleted_) ADD_FAILURE() << name_ << " was deleted and cannot call back";
  if (!deleted_ && !ready) ADD_FAILURE() << name_ << " cannot call back: " << reason;
  return !deleted_ && ready;
}

void FakeFdControl::fire() {
  if (mayFire(watching(), "nothing is watched")) handler_->fdEvent(fd_);
}

void FakeFdControl::watch(int fd, int failure) {
  record("watch " + std::to_string(fd));
  if (failure != 0) refuse(fd, failure);
  prepare(fd);
  fd_ = fd;
}

void FakeFdControl::unwatch() {
  record("unwatch");
  fd_ = -1;
}

int FakeFdControl::answer() {
  ++queries_;
  return fd_;
}

void FakeTimerControl::fire() {
  if (!mayFire(armed_, "the timer is not armed")) return;
  armed_ = false;
  handler_->timeout();
}

void FakeTimerControl::start(double seconds) {
  std::ostringstream text;
  text << "start " << seconds;
  record(text.str());
  armed_ = true;
  seconds_ = seconds;
}

void FakeTimerControl::cancel() {
  record("cancel");
  armed_ = false;
}

void FakeInotifyControl::changed(const std::string& what) {
  if (mayFire(watching_, "nothing is watched")) handler_->inotifyChanged(what);
}

// A watch that could not be set reports its error, too.
void FakeInotifyControl::error(const std::string& what) {
  if (mayFire(!path_.empty(), "addWatch was not called")) handler_->inotifyError(what);
}

void FakeInotifyControl::deleted() {
  if (!mayFire(watching_, "nothing is watched")) return;
  watching_ = false;
  handler_->inotifyDeleted();
}

void FakeInotifyControl::addWatch(const std::string& path, uint32_t mask) {
  std::ostringstream text;
  text << "addWatch " << path << " 0x" << std::hex << mask;
  record(text.str());
  watching_ = true;
  path_ = path;
  mask_ = mask;
}

void FakeInotifyControl::removeWatch() {
  record("removeWatch");
  watching_ = false;
}

std::string FakeInotifyControl::answer() {
  ++queries_;
  return path_;
}

}  // namespace Zorbe::Test
