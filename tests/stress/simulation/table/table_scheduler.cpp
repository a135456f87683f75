// SPDX-License-Identifier: MIT
#include "stress/simulation/table/table_scheduler.h"

#include <algorithm>

#include "stress/simulation/system_calls.h"

namespace Zorbe::Test::Simulation {
namespace {

constexpr unsigned kRounds = 3;
constexpr unsigned kDisturbedSteps = 150;
constexpr unsigned kRestLimit = 50000;
constexpr unsigned kMostReaders = 4;
constexpr double kRest = 5;  // seconds within which every reader has to catch up

}  // namespace

TableScheduler::TableScheduler(World& world, const TableRoles& roles)
    : Stepper(world),
      files_(world, roles.stores),
      roles_(roles),
      removes_(world.random.percent(40)),
      fills_(world.random.percent(30)) {
  shared_.keys = 5 + world_.random.below(150);
  shared_.options.root = "/shmem";
  shared_.options.records = 1 + world_.random.below(8);
  shared_.options.logEntries = size_t{4} << world_.random.below(5);
}

// Those of a world that has failed: they unmap what files_ knows.
TableScheduler::~TableScheduler() {
  for (const auto& process : world_.processes()) TableScheduler::kill(*process);
}

void TableScheduler::run() {
  if (world_.random.percent(70)) startWriter();
  startReader();
  for (unsigned round = 0; round < kRounds && !failed(); ++round) {
    runWithDisturbances(kDisturbedSteps, 30);
    files_.setFull(false);
    if (world_.random.percent(40)) checkWithoutWriter();
    checkWithWriter();
  }
  leaveAll();
}

void TableScheduler::check() {
  world_.reap();
  unsigned writing = 0;
  for (const auto& process : world_.processes()) {
    const auto* const program = programOf<TableWriterProgram>(*process);
    if (program != nullptr && program->isWriting()) ++writing;
  }
  if (writing > 1) world_.fail("there are two writers");
  if (writing == 1 && world_.files.exists(std::string(kTableDirectory) + "/slots")) {
    shared_.wasRemoved = false;
  }
}

TableWriterProgram* TableScheduler::writer() const {
  for (const auto& process : world_.processes()) {
    auto* const program = programOf<TableWriterProgram>(*process);
    if (program != nullptr && program->isWriting()) return program;
  }
  return nullptr;
}

std::vector<TableReaderProgram*> TableScheduler::readers() const {
  std::vector<TableReaderProgram*> found;
  for (const auto& process : world_.processes()) {
    auto* const program = programOf<TableReaderProgram>(*process);
    if (program != nullptr && program->isStarted()) found.push_back(program);
  }
  return found;
}

// ---- Disturbances

void TableScheduler::disturb() {
  const unsigned kind = world_.random.below(100);
  if (kind < 45) return change();
  if (kind < 65) return lookUp();
  if (kind < 80) return disturbProcess(40);
  if (kind < 86) return startReader();
  if (kind < 94) return startWriter();
  if (kind < 97 && fills_) return files_.setFull(world_.random.percent(50));
  if (removes_) removeDirectory();
}

void TableScheduler::change() {
  Process* const process = anyProcess();
  auto* const program = process == nullptr ? nullptr : programOf<TableWriterProgram>(*process);
  if (program == nullptr) return;
  const unsigned changes = 1 + world_.random.below(world_.random.percent(30) ? 100 : 5);
  process->request([program, changes] { program->change(changes); });
}

void TableScheduler::lookUp() {
  Process* const process = anyProcess();
  auto* const program = process == nullptr ? nullptr : programOf<TableReaderProgram>(*process);
  if (program == nullptr) return;
  process->request([program, key = world_.random.below(shared_.keys)] { program->lookUp(key); });
}

void TableScheduler::kill(Process& process) {
  world_.note(process.name() + " is killed");
  const bool isWriter = process.name()[0] == 'w';
  world_.covered.insert(std::string(isWriter ? "writer" : "reader") + " killed" +
                        (process.isWaiting() ? "" : " in the middle of something"));
  files_.detach(process);
  process.kill();
}

void TableScheduler::removeDirectory() {
  world_.note("the directory is removed");
  world_.covered.insert("directory removed");
  world_.files.removeTree(kTableDirectory);
  shared_.wasRemoved = true;
  ++shared_.removals;
}

void TableScheduler::startWriter() {
  world_.start("writer", [this](Process& process) {
    return std::make_unique<TableWriterProgram>(process, shared_);
  });
}

void TableScheduler::startReader() {
  const auto isReader = [](const auto& process) { return process->name()[0] == 'r'; };
  const auto& all = world_.processes();
  if (std::count_if(all.begin(), all.end(), isReader) >= kMostReaders) return;
  world_.start("reader", [this](Process& process) { return roles_.reader(process, shared_); });
}

// ---- Checks at rest

void TableScheduler::resumeAll() {
  for (const auto& process : world_.processes()) process->stop(false);
}

// Until `done`, or the time is over. There is always a timer to come.
bool TableScheduler::runUntil(double seconds, const std::function<bool()>& done) {
  const int64_t end = world_.clock.after(seconds);
  for (unsigned i = 0; i < kRestLimit && !failed(); ++i) {
    if (done()) return true;
    if (step()) continue;
    if (!world_.advanceClock() || world_.clock.now() > end) return false;
  }
  if (!failed()) world_.fail("does not come to rest");
  return false;
}

void TableScheduler::runFor(double seconds) {
  runUntil(seconds, [] { return false; });
}

void TableScheduler::checkWithoutWriter() {
  world_.note("without a writer");
  resumeAll();
  for (const auto& process : world_.processes()) {
    if (process->name()[0] == 'w') kill(*process);
  }
  runFor(kRest);
  for (const TableReaderProgram* reader : readers()) {
    if (reader->isConnected()) world_.fail("a reader is connected to nobody");
  }
}

void TableScheduler::checkWithWriter() {
  if (failed()) return;
  world_.note("with a writer");
  resumeAll();
  runFor(kRest);  // who was asked to leave has left
  const auto isWriting = [this] { return writer() != nullptr; };
  for (int attempt = 0; attempt < 3 && !isWriting(); ++attempt) {
    startWriter();
    runUntil(kRest, isWriting);
  }
  startReader();
  runFor(kRest);
  if (failed()) return;
  if (!isWriting()) return world_.fail("nobody becomes the writer");
  for (const auto& process : world_.processes()) {
    auto* const reader = programOf<TableReaderProgram>(*process);
    if (reader == nullptr) continue;
    if (!reader->isConnected()) return world_.fail(process->name() + " is not connected");
    process->request([this, reader, name = process->name()] {
      const std::string wrong = reader->checkAtRest();
      if (!wrong.empty()) world_.fail(name + " " + wrong);
    });
  }
  runFor(kRest);
}

void TableScheduler::leaveAll() {
  if (failed()) return;
  world_.note("all processes leave");
  for (const auto& process : world_.processes()) {
    process->request([p = process.get()] { p->leave(); });
  }
  runFor(kRest);
  if (!failed() && !world_.processes().empty()) world_.fail("a process has not left");
}

// ----

Outcome simulateTable(uint64_t seed, const TableRoles& roles, bool tracing) {
  divertSocketCalls();
  TableFiles::divertCalls();
  World world(seed, tracing);
  TableScheduler scheduler(world, roles);
  scheduler.run();
  return {scheduler.steps(), world.covered, world.failure(), world.trace()};
}

}  // namespace Zorbe::Test::Simulation
