// SPDX-License-Identifier: MIT
//
// A process of a simulated world: its descriptors, its event loop, its program, and the
// stack that the program runs on.
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "stress/simulation/fiber.h"
#include "support/kernel/sockets.h"

namespace Zorbe::Test::Simulation {

class World;

/// What a process runs. Constructed and destroyed by its own process.
class Program {
 public:
  virtual ~Program() = default;
  virtual void start() = 0;
};

/// Something that a control waits for.
class EventSource {
 public:
  virtual ~EventSource() = default;
  virtual bool isReady(const World& world) const = 0;
  virtual void fire() = 0;  ///< may destroy this object
  virtual std::string describe() const = 0;
  virtual int64_t deadline() const { return -1; }  ///< -1: there is none
};

class Process final : public Brask::Platform::DebugHandler {
 public:
  enum class State { kRunning, kExiting, kExited };
  using Loader = std::function<std::unique_ptr<Program>(Process&)>;

  Process(World& world, int pid, std::string name, Loader loader);
  ~Process() override;

  /// The running process; null between the steps.
  static Process* running() { return running_; }

  World& world() { return world_; }
  int pid() const { return pid_; }
  const std::string& name() const { return name_; }
  State state() const { return state_; }

  // Scheduling, from outside.
  bool isStopped() const { return stopped_; }
  void stop(bool stopped) { stopped_ = stopped; }
  bool isWaiting() const { return idle_; }  ///< in its loop, not in an interrupted call
  void request(std::function<void()> request) { requests_.push_back(std::move(request)); }
  std::vector<EventSource*> choices() const;  ///< what it may do next; null: see the definition
  void run(EventSource* choice);
  void kill();

  // From inside.
  bool isDead() const { return dead_; }
  bool isLeaving() const { return leaving_; }
  void leave() { leaving_ = true; }
  void pause();  ///< others may run now
  void waitUntil(std::function<bool()> condition);

  // Descriptors: the lowest free number. One without a socket is a file.
  static constexpr int kFirstDescriptor = 1 << 20;
  int open(Kernel::SocketRef socket);
  bool owns(int fd) const { return descriptors_.count(fd) != 0; }
  Kernel::SocketRef socket(int fd) const;
  void closeDescriptor(int fd);
  std::size_t openDescriptors() const { return descriptors_.size(); }

  // Controls.
  void add(EventSource* source) { sources_.push_back(source); }
  void remove(EventSource* source);
  const std::vector<EventSource*>& sources() const { return sources_; }

  Program* program() const { return program_.get(); }

  bool isEnabled(int level) override;
  void emit(std::ostringstream& message, int level) override;

 private:
  void main(const Loader& loader);
  void loop();
  void resume();
  void finish();

  static Process* running_;

  World& world_;
  int pid_;
  std::string name_;
  State state_ = State::kRunning;
  bool stopped_ = false;
  bool dead_ = false;
  bool leaving_ = false;
  bool idle_ = false;
  bool cleaning_ = false;
  EventSource* next_ = nullptr;
  std::function<bool()> condition_;
  std::deque<std::function<void()>> requests_;
  std::map<int, Kernel::SocketRef> descriptors_;
  std::vector<EventSource*> sources_;
  std::unique_ptr<Program> program_;
  Fiber fiber_;
};

}  // namespace Zorbe::Test::Simulation
