// SPDX-License-Identifier: MIT
#include "stress/simulation/world.h"

#include <algorithm>
#include <utility>

namespace Zorbe::Test::Simulation {

World::World(uint64_t seed, bool tracing)
    : random(seed),
      sockets(1 + random.below(random.percent(50) ? 4 : 64), covered),
      tracing_(tracing),
      pausePercent_(random.percent(25) ? 0 : 10 + random.below(60)) {}

World::~World() = default;

Process& World::start(const std::string& name, Process::Loader loader) {
  const int pid = ++lastPid_;
  processes_.push_back(
      std::make_unique<Process>(*this, pid, name + "-" + std::to_string(pid), std::move(loader)));
  return *processes_.back();
}

void World::reap() {
  const auto isGone = [](const auto& process) {
    return process->state() == Process::State::kExited;
  };
  processes_.erase(std::remove_if(processes_.begin(), processes_.end(), isGone), processes_.end());
}

bool World::advanceClock() {
  int64_t next = -1;
  for (const auto& process : processes_) {
    for (const EventSource* source : process->sources()) {
      const int64_t deadline = source->deadline();
      if (deadline > clock.now() && (next < 0 || deadline < next)) next = deadline;
    }
  }
  if (next < 0) return false;
  clock.advanceTo(next);
  return true;
}

bool World::describeProcess(const std::string& path, std::string& content) const {
  if (path == "/proc/net/unix") return true;  // that of another network namespace
  const std::string start = "/proc/";
  if (path.rfind(start, 0) != 0) return false;
  const auto named = [&](const auto& process) {
    return process->state() != Process::State::kExited &&
           path.rfind(start + std::to_string(process->pid()) + "/", 0) == 0;
  };
  const auto found = std::find_if(processes_.begin(), processes_.end(), named);
  if (found == processes_.end()) return false;
  content = (*found)->name();
  return true;
}

void World::fail(const std::string& what) {
  if (failure_.empty()) failure_ = what;
  note("FAILED: " + what);
}

void World::note(const std::string& what) {
  if (tracing_) trace_.push_back(std::to_string(clock.now() / 1000) + " " + what);
}

}  // namespace Zorbe::Test::Simulation
