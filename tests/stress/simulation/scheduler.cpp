// SPDX-License-Identifier: MIT
#include "stress/simulation/scheduler.h"

#include <algorithm>
#include <limits>

#include "stress/simulation/invariants.h"

namespace Zorbe::Test::Simulation {
namespace {

constexpr unsigned kRounds = 3;
constexpr unsigned kDisturbedSteps = 150;
constexpr unsigned kIdleLimit = 20000;
constexpr int64_t kForever = std::numeric_limits<int64_t>::max();
constexpr int64_t kAbsence = 2 * Kernel::Clock::kSecond;  // without a writer

}  // namespace

Scheduler::Scheduler(World& world, const Roles& roles)
    : Stepper(world), roles_(roles), readers_(1 + world.random.below(8)) {}

void Scheduler::run() {
  startWriter();
  for (unsigned i = 0; i < readers_; ++i) startReader();
  for (unsigned round = 0; round < kRounds && !failed(); ++round) {
    runWithDisturbances(kDisturbedSteps, 20);
    if (world_.random.percent(40)) checkWithoutWriter();
    checkWithWriter();
  }
  leaveAll();
}

// ---- Steps

void Scheduler::check() {
  world_.reap();
  checkAlways(world_);
}

// ---- Disturbances

void Scheduler::disturb() {
  const unsigned kind = world_.random.below(100);
  if (kind < 45) return publish();
  if (kind < 60) return disturbReader();
  if (kind < 78) return disturbProcess(65);
  if (kind < 92) return startReader();
  if (kind < 97) return startWriter();
  world_.note("the directory is removed");
  world_.covered.insert("directory removed");
  world_.files.removeTree("/shmem/table");
}

void Scheduler::publish() {
  TableWriter* const writer = lockHolder(world_);
  if (writer == nullptr) return;
  const unsigned changes = 1 + world_.random.below(5);
  writer->process().request([writer, changes] { writer->publish(changes); });
}

// A reader suspends its notifications for a while.
void Scheduler::disturbReader() {
  Process* const process = anyProcess();
  auto* const program = process == nullptr ? nullptr : programOf<ReaderProgram>(*process);
  if (program == nullptr) return;
  process->request([program, on = world_.random.percent(50)] {
    if (program->reader() != nullptr) program->reader()->notifying(on);
  });
}

void Scheduler::startWriter() {
  world_.start("writer", [this](Process& process) {
    return std::make_unique<WriterProgram>(process, roles_.writer);
  });
}

void Scheduler::startReader() {
  const auto isReader = [](const auto& process) { return process->name()[0] == 'r'; };
  const auto& all = world_.processes();
  const auto started = static_cast<unsigned>(std::count_if(all.begin(), all.end(), isReader));
  if (started >= readers_) return;
  world_.start("reader",
               [this](Process& process) { return roles_.readerProgram(process, roles_.reader); });
}

// ---- Checks when idle

// Continues stopped processes and resumes the notifications of readers.
void Scheduler::resumeAll() {
  for (const auto& process : world_.processes()) {
    process->stop(false);
    if (process->state() != Process::State::kRunning) continue;
    process->request([p = process.get()] {
      auto* const reader = dynamic_cast<ReaderProgram*>(p->program());
      if (reader != nullptr && reader->reader() != nullptr) reader->reader()->notifying(true);
    });
  }
}

// Runs until no process has anything to do, or until that time.
bool Scheduler::runUntilIdle(int64_t until) {
  for (unsigned i = 0; i < kIdleLimit && !failed(); ++i) {
    if (step()) continue;
    if (world_.clock.now() >= until || !world_.advanceClock()) return true;
  }
  if (!failed()) world_.fail("does not become idle");
  return false;
}

void Scheduler::checkWithoutWriter() {
  world_.note("idle without a writer");
  resumeAll();
  for (const auto& process : world_.processes()) {
    if (process->name()[0] == 'w') process->kill();
  }
  if (runUntilIdle(world_.clock.now() + kAbsence)) checkDepartureReported(world_);
}

void Scheduler::checkWithWriter() {
  world_.note("idle");
  resumeAll();
  if (!runUntilIdle(world_.clock.now())) return;
  if (lockHolder(world_) == nullptr) startWriter();
  startReader();
  if (!runUntilIdle(kForever)) return;
  checkIdle(world_);
  writeFile();
}

void Scheduler::writeFile() {
  const std::string path = "/shmem/table/news";
  if (failed() || !runUntilIdle(kForever)) return;
  if (world_.files.create(path) != 0) return world_.fail("idle without a directory");
  world_.files.close(path, world_.files.inode(path), "");
  if (runUntilIdle(kForever)) checkChangeReported(world_, "news");
}

void Scheduler::leaveAll() {
  if (failed()) return;
  world_.note("all processes leave");
  for (const auto& process : world_.processes())
    process->request([p = process.get()] { p->leave(); });
  if (runUntilIdle(kForever) && !world_.processes().empty()) world_.fail("a process has not left");
}

}  // namespace Zorbe::Test::Simulation
