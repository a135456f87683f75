// SPDX-License-Identifier: MIT
#include "stress/simulation/process.h"

#include <brask/exception.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

Process* Process::running_ = nullptr;

Process::Process(World& world, int pid, std::string name, Loader loader)
    : world_(world),
      pid_(pid),
      name_(std::move(name)),
      fiber_([this, loader = std::move(loader)] { main(loader); }) {}

Process::~Process() {
  if (!fiber_.finished()) kill();
}

void Process::main(const Loader& loader) {
  try {
    if (!dead_) {
      program_ = loader(*this);
      program_->start();
      loop();
    }
  } catch (const Brask::Exception& failure) {
    if (!dead_) world_.fail(name_ + " ends with " + failure.msg());
  } catch (const std::exception& failure) {
    if (!dead_) world_.fail(name_ + " ends with " + failure.what());
  }
  cleaning_ = true;
  program_.reset();
}

void Process::loop() {
  while (!dead_ && !leaving_) {
    idle_ = true;
    fiber_.suspend();
    idle_ = false;
    if (dead_) return;
    if (EventSource* const source = std::exchange(next_, nullptr)) {
      source->fire();
    } else {
      const auto request = std::move(requests_.front());
      requests_.pop_front();
      request();
    }
  }
}

// Null stands for continuing an interrupted call, for a request, or for exiting.
std::vector<EventSource*> Process::choices() const {
  if (stopped_ || state_ == State::kExited) return {};
  if (state_ == State::kExiting) return {nullptr};
  if (!idle_) {
    if (condition_ && !condition_()) return {};
    return {nullptr};
  }
  std::vector<EventSource*> ready;
  if (!requests_.empty()) ready.push_back(nullptr);
  for (EventSource* source : sources_) {
    if (source->isReady(world_)) ready.push_back(source);
  }
  return ready;
}

void Process::run(EventSource* choice) {
  if (state_ == State::kExiting) {
    if (descriptors_.empty()) {
      state_ = State::kExited;
    } else {
      closeDescriptor(descriptors_.begin()->first);
    }
    return;
  }
  next_ = choice;
  resume();
  if (fiber_.finished()) finish();
}

void Process::resume() {
  running_ = this;
  fiber_.resume();
  running_ = nullptr;
}

void Process::finish() {
  state_ = State::kExiting;
  if (!sources_.empty()) world_.fail(name_ + " has left controls behind");
  if (!dead_ && !descriptors_.empty()) world_.fail(name_ + " has left descriptors open");
}

// From here on the program has no effect. It runs to its end only to free its memory. The
// kernel closes the descriptors one by one.
void Process::kill() {
  dead_ = true;
  stopped_ = false;
  if (state_ != State::kRunning) return;
  while (!fiber_.finished()) resume();
  finish();
}

void Process::pause() {
  if (dead_ || !world_.wantsPause()) return;
  fiber_.suspend();
}

void Process::waitUntil(std::function<bool()> condition) {
  if (dead_) return;
  condition_ = std::move(condition);
  fiber_.suspend();
  condition_ = nullptr;
}

int Process::open(Kernel::SocketRef socket) {
  int fd = kFirstDescriptor;
  while (owns(fd)) ++fd;
  if (socket) socket->owner = pid_;
  descriptors_[fd] = std::move(socket);
  return fd;
}

Kernel::SocketRef Process::socket(int fd) const {
  const auto found = descriptors_.find(fd);
  return found == descriptors_.end() ? nullptr : found->second;
}

void Process::closeDescriptor(int fd) {
  const Kernel::SocketRef closed = socket(fd);
  descriptors_.erase(fd);
  if (closed) world_.sockets.close(closed);
}

void Process::remove(EventSource* source) {
  sources_.erase(std::remove(sources_.begin(), sources_.end(), source), sources_.end());
}

bool Process::isEnabled(int level) {
  return !dead_ && level <= 5 && world_.isTracing();
}

void Process::emit(std::ostringstream& message, int level) {
  world_.note("    " + name_ + " says " + std::to_string(level) + ": " + message.str());
}

}  // namespace Zorbe::Test::Simulation
