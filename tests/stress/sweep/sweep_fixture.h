// SPDX-License-Identifier: MIT
//
// Runs one scenario after the other, each with a failure, and checks the state after each.
#pragma once

#include <exception>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fault/fault.h"
#include "stress/sweep/scenario.h"
#include "support/failing_memory.h"
#include "support/fixture.h"

namespace Zorbe::Test::Sweep {

class SweepTest : public ZorbeTest {
 protected:
  SweepTest();
  ~SweepTest() override;

  /// A run of the scenario. `arm` makes something fail from the first step on.
  struct Run {
    std::string name;
    Scenario::Effort effort = Scenario::Effort::kNormal;
    std::function<void()> arm;
    std::function<void(const EventRecorder&)> check;
  };
  void runScenario(const Run& run);

  /// Enough to end the test.
  bool hasManyProblems() const { return problems_ >= 20; }
  void report(const std::string& what);

  /// Runs scenarios in which nothing fails, and keeps their messages.
  void learnBaseline(Scenario::Effort effort);

  /// The messages that the baseline does not have.
  std::vector<Message> newMessages(const EventRecorder& recorder) const;

  /// Messages of the baseline are missing.
  bool missesMessages(const EventRecorder& recorder) const;

  /// The exceptions, without the refusal of the second writer, which every scenario has.
  static std::vector<std::string> newExceptions(const EventRecorder& recorder);

  /// Names the run, once its failure is known.
  void rename(const std::string& newName);

  unsigned runs = 0;
  std::string name;  ///< of the run

 private:
  struct Ending {
    bool recovered;
    bool becameIdle;
  };

  Ending execute(EventRecorder& recorder, Scenario::Effort effort);
  void checkAfterwards(const EventRecorder& recorder, const Census& before);
  void clearRoot();
  void prepareSystem() const;
  void listSockets() const;

  std::terminate_handler terminate_;
  std::map<int, void (*)(int)> signals_;
  SharedTable table_;
  std::multiset<std::string> baseline_;  // texts of messages
  unsigned problems_ = 0;
};

}  // namespace Zorbe::Test::Sweep
