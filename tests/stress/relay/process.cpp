// SPDX-License-Identifier: MIT
#include "stress/relay/process.h"

#include <csignal>
#include <utility>

namespace Zorbe::Test::RelayChaos {
namespace {

// A program that has just been started does not handle SIGTERM yet.
constexpr std::chrono::seconds kSettled{1};

}  // namespace

Process::Process(std::string name, const std::vector<std::string>& arguments)
    : name_(std::move(name)),
      make_([arguments] { return std::make_unique<ChildProcess>(arguments); }) {}

Process::Process(const std::string& name, const ChildProcess::Role& role)
    : name_(name), make_([name, role] {
        auto child = std::make_unique<ChildProcess>(name, role);
        child->await("ready");
        return child;
      }) {}

void Process::start() {
  child_ = make_();
  startedAt_ = Clock::now();
}

void Process::kill() {
  child_->kill();
  lastLog_ = child_->log();
  child_.reset();
  isStopped_ = false;
}

void Process::stop() {
  child_->signal(SIGSTOP);
  isStopped_ = true;
}

void Process::resume() {
  child_->signal(SIGCONT);
  isStopped_ = false;
}

void Process::leave() {
  if (isStopped_) resume();
  child_->signal(SIGTERM);
  const bool isSettled = Clock::now() - startedAt_ > kSettled;
  const int status = reap();
  if (status == 0 || (status == -SIGTERM && !isSettled)) return;
  throw Failure(name_ + " has left with status " + std::to_string(status) + "\n" + log());
}

int Process::reap() {
  const int status = child_->finish();
  lastLog_ = child_->log();
  child_.reset();
  isStopped_ = false;
  return status;
}

}  // namespace Zorbe::Test::RelayChaos
