// SPDX-License-Identifier: MIT
#include "stress/sweep/sweep_fixture.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>

namespace Zorbe::Test::Sweep {
namespace {

constexpr unsigned kDeadlineSeconds = 30;

// The name of the current run, for the message of a crash.
char current[512];

void printRun(const char* what) {
  for (const char* part : {what, static_cast<const char*>(current), "\n"}) {
    if (::write(STDERR_FILENO, part, std::strlen(part)) < 0) break;
  }
}

void onSignal(int number) {
  printRun(number == SIGALRM ? "hangs: " : "crashes: ");
  ::signal(number, SIG_DFL);
  ::raise(number);
}

// Without the numbers that differ from run to run: inodes, addresses, and how often the
// process was interrupted.
std::string comparable(const std::string& text) {
  std::string result;
  std::string number;
  for (const char each : text.substr(0, text.find("/stat")) + ' ') {
    if (std::strchr("0123456789abcdef", each) != nullptr && each != '\0') {
      number += each;
      continue;
    }
    result += number.size() < 5 ? number : "#";
    result += each;
    number.clear();
  }
  return result;
}

void onTerminate() {
  printRun("terminates: ");
  std::abort();
}

}  // namespace

SweepTest::SweepTest() : terminate_(std::set_terminate(onTerminate)) {
  for (const int number : {SIGALRM, SIGSEGV, SIGBUS}) {
    signals_[number] = ::signal(number, onSignal);
  }
  allowUnfiredFaults();
}

SweepTest::~SweepTest() {
  ::alarm(0);
  for (const auto& [number, action] : signals_) ::signal(number, action);
  std::set_terminate(terminate_);
}

void SweepTest::rename(const std::string& newName) {
  name = newName;
  std::strncpy(current, name.c_str(), sizeof current - 1);
}

void SweepTest::report(const std::string& what) {
  ++problems_;
  ADD_FAILURE() << name << ": " << what;
}

void SweepTest::learnBaseline(Scenario::Effort effort) {
  const Run nothing{"nothing fails", effort, [] {}, [](const EventRecorder&) {}};
  runScenario(nothing);  // warms up
  Run learning = nothing;
  learning.check = [this](const EventRecorder& recorder) {
    for (const Message& message : recorder.messages()) baseline_.insert(comparable(message.text));
  };
  runScenario(learning);
  Run repeating = nothing;
  repeating.check = [this](const EventRecorder& recorder) {
    for (const std::string& text : newExceptions(recorder)) report("throws: " + text);
    if (recorder.badAllocs() != 0) report("throws bad_alloc");
  };
  runScenario(repeating);
}

std::vector<Message> SweepTest::newMessages(const EventRecorder& recorder) const {
  std::vector<Message> found;
  std::multiset<std::string> expected = baseline_;
  for (const Message& message : recorder.messages()) {
    const auto known = expected.find(comparable(message.text));
    if (known == expected.end()) {
      found.push_back(message);
    } else {
      expected.erase(known);
    }
  }
  return found;
}

bool SweepTest::missesMessages(const EventRecorder& recorder) const {
  return recorder.messages().size() - newMessages(recorder).size() < baseline_.size();
}

std::vector<std::string> SweepTest::newExceptions(const EventRecorder& recorder) {
  std::vector<std::string> found = recorder.thrown();
  const auto refusal = std::find_if(found.begin(), found.end(), [](const std::string& text) {
    return text.find("duplicate writer") != std::string::npos;
  });
  if (refusal != found.end()) found.erase(refusal);
  return found;
}

void SweepTest::clearRoot() {
  const Fault::Bypass bypass;
  table_.sequence() = 0;
  std::filesystem::remove_all(inRoot("quotes"));
  std::filesystem::create_directories(inRoot("processes/self"));
}

// The system as a scenario sees it: small, and the same every time.
void SweepTest::prepareSystem() const {
  // A refused writer looks for the holder among all processes and sockets.
  Fault::redirect("opendir", "/proc", inRoot("processes"));
  Fault::redirect("fopen", "/proc/net/unix", inRoot("unix"));
  Fault::before("fopen", 1, [this] { listSockets(); }).onPath("/proc/net/unix");
  // There is another network namespace, and it can be entered.
  Fault::redirect("open", "/run/netns/default", "/proc/self/ns/net");
  Fault::armResult("setns", 1, 0, Fault::kForever);
}

void SweepTest::listSockets() const {
  std::ifstream all("/proc/net/unix");
  std::ofstream own(inRoot("unix"));
  std::map<std::string, std::string> lines;  // by what follows the address
  for (std::string line; std::getline(all, line);) {
    if (line.find("zorbe_quotes") != std::string::npos) lines[line.substr(line.find(':'))] = line;
  }
  for (const auto& line : lines) own << line.second << '\n';
}

void SweepTest::runScenario(const Run& run) {
  std::optional<Fault::Bypass> bypass(std::in_place);
  rename(run.name);
  clearRoot();
  ++runs;
  const Census before = Census::take();
  const long blocks = Memory::blocks();
  auto recorder = std::make_unique<EventRecorder>();
  ::alarm(kDeadlineSeconds);
  run.arm();
  prepareSystem();
  bypass.reset();
  const Ending ending = execute(*recorder, run.effort);
  Memory::stopFailing();
  bypass.emplace();
  Fault::reset();
  if (run.effort == Scenario::Effort::kNormal && !ending.becameIdle)
    report("the loop does not rest");
  if (run.effort == Scenario::Effort::kNormal && !ending.recovered) report("does not recover");
  checkAfterwards(*recorder, before);
  run.check(*recorder);
  recorder.reset();
  if (Memory::blocks() != blocks) {
    report(std::to_string(Memory::blocks() - blocks) + " blocks of memory leaked");
  }
}

SweepTest::Ending SweepTest::execute(EventRecorder& recorder, Scenario::Effort effort) {
  Scenario scenario(recorder, table_, effort);
  scenario.run();
  return {scenario.recovered(), !scenario.neverIdle()};
}

void SweepTest::checkAfterwards(const EventRecorder& recorder, const Census& before) {
  for (const std::string& unexpected : recorder.unexpectedExceptions())
    report("throws: " + unexpected);
  for (const Message& message : recorder.messages()) {
    if (message.text == "TWO WRITERS") report("two writers");
  }
  const Census after = Census::take();
  const auto left = before.openedBy(after);
  if (left.size() != recorder.documentedLeaks() || !after.openedBy(before).empty()) {
    report("descriptors changed, " + std::to_string(recorder.documentedLeaks()) +
           " expected to stay open:\n" + before.difference(after));
  }
  const Fault::Bypass bypass;
  for (const int fd : left) ::close(fd);
}

}  // namespace Zorbe::Test::Sweep
