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

constexpr unsigned deadlineSeconds = 30;

// What a run that ends the program was about.
char current[512];

void tell(const char* what) {
  for (const char* part : {what, static_cast<const char*>(current), "\n"}) {
    if (::write(STDERR_FILENO, part, std::strlen(part)) < 0) break;
  }
}

void onSignal(int number) {
  tell(number == SIGALRM ? "hangs: " : "crashes: ");
  ::signal(number, SIG_DFL);
  ::raise(number);
}

// Without what is another number in every life: inodes, addresses, and how often the
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
  tell("terminates: ");
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

void SweepTest::complain(const std::string& what) {
  ++problems_;
  ADD_FAILURE() << name << ": " << what;
}

void SweepTest::liveAsUsual(Life::Effort effort) {
  const Run nothing{"nothing fails", effort, [] {}, [](const Witness&) {}};
  live(nothing);  // warms up
  Run learning = nothing;
  learning.judge = [this](const Witness& witness) {
    for (const Message& message : witness.messages()) usual_.insert(comparable(message.text));
  };
  live(learning);
  Run repeating = nothing;
  repeating.judge = [this](const Witness& witness) {
    for (const std::string& text : newExceptions(witness)) complain("throws: " + text);
    if (witness.badAllocs() != 0) complain("throws bad_alloc");
  };
  live(repeating);
}

std::vector<Message> SweepTest::newMessages(const Witness& witness) const {
  std::vector<Message> found;
  std::multiset<std::string> expected = usual_;
  for (const Message& message : witness.messages()) {
    const auto known = expected.find(comparable(message.text));
    if (known == expected.end()) {
      found.push_back(message);
    } else {
      expected.erase(known);
    }
  }
  return found;
}

bool SweepTest::missesMessages(const Witness& witness) const {
  return witness.messages().size() - newMessages(witness).size() < usual_.size();
}

std::vector<std::string> SweepTest::newExceptions(const Witness& witness) {
  std::vector<std::string> found = witness.thrown();
  const auto refusal = std::find_if(found.begin(), found.end(), [](const std::string& text) {
    return text.find("duplicate writer") != std::string::npos;
  });
  if (refusal != found.end()) found.erase(refusal);
  return found;
}

void SweepTest::clearRoot() {
  const Fault::Bypass bypass;
  table.sequence() = 0;
  std::filesystem::remove_all(inRoot("quotes"));
  std::filesystem::create_directories(inRoot("processes/self"));
}

// The world of a life: as small as it can be, and the same every time.
void SweepTest::furnish() const {
  // A refused writer looks for the holder among all processes and sockets.
  Fault::redirect("opendir", "/proc", inRoot("processes"));
  Fault::redirect("fopen", "/proc/net/unix", inRoot("unix"));
  Fault::before("fopen", 1, [this] { listSockets(); }).onPath("/proc/net/unix");
  // There is another network namespace, and it can be entered.
  Fault::redirect("open", "/run/netns/default", "/proc/self/ns/net");
  Fault::armResult("setns", 1, 0, Fault::forever);
}

void SweepTest::listSockets() const {
  std::ifstream all("/proc/net/unix");
  std::ofstream own(inRoot("unix"));
  std::map<std::string, std::string> lines;  // by what stands behind the address
  for (std::string line; std::getline(all, line);) {
    if (line.find("zorbe_quotes") != std::string::npos) lines[line.substr(line.find(':'))] = line;
  }
  for (const auto& line : lines) own << line.second << '\n';
}

void SweepTest::live(const Run& run) {
  std::optional<Fault::Bypass> bypass(std::in_place);
  rename(run.name);
  clearRoot();
  ++lives;
  const Census before = Census::take();
  const long blocks = Memory::blocks();
  auto witness = std::make_unique<Witness>();
  ::alarm(deadlineSeconds);
  run.arm();
  furnish();
  bypass.reset();
  const Ending ending = lead(*witness, run.effort);
  Memory::stopFailing();
  bypass.emplace();
  Fault::reset();
  if (run.effort == Life::Effort::normal && !ending.rested) complain("the loop does not rest");
  if (run.effort == Life::Effort::normal && !ending.recovered) complain("does not recover");
  checkRest(*witness, before);
  run.judge(*witness);
  witness.reset();
  if (Memory::blocks() != blocks) {
    complain(std::to_string(Memory::blocks() - blocks) + " blocks of memory leaked");
  }
}

SweepTest::Ending SweepTest::lead(Witness& witness, Life::Effort effort) {
  Life life(witness, table, effort);
  life.live();
  return {life.recovered(), !life.spun()};
}

void SweepTest::checkRest(const Witness& witness, const Census& before) {
  for (const std::string& stranger : witness.strangers()) complain("throws: " + stranger);
  for (const Message& message : witness.messages()) {
    if (message.text == "TWO WRITERS") complain("two writers");
  }
  const Census after = Census::take();
  const auto left = before.openedBy(after);
  if (left.size() != witness.documentedLeaks() || !after.openedBy(before).empty()) {
    complain("descriptors changed, " + std::to_string(witness.documentedLeaks()) +
             " expected to stay open:\n" + before.difference(after));
  }
  const Fault::Bypass bypass;
  for (const int fd : left) ::close(fd);
}

}  // namespace Zorbe::Test::Sweep
