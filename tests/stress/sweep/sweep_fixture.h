// SPDX-License-Identifier: MIT
//
// One life after the other, each with something failing in it, and what holds after each.
#pragma once

#include <exception>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fault/fault.h"
#include "stress/sweep/life.h"
#include "support/failing_memory.h"
#include "support/zorbe_test.h"

namespace Zorbe::Test::Sweep {

class SweepTest : public ZorbeTest {
 protected:
  SweepTest();
  ~SweepTest() override;

  /// Lives once. `arm` makes something fail from the first step on.
  struct Run {
    std::string name;
    Life::Effort effort = Life::Effort::normal;
    std::function<void()> arm;
    std::function<void(const Witness&)> judge;
  };
  void live(const Run& run);

  /// A test that has found so much has found enough.
  bool hasEnough() const { return problems_ >= 20; }
  void complain(const std::string& what);

  /// Leads lives in which nothing fails, and keeps what is usual.
  void liveAsUsual(Life::Effort effort);

  /// The messages that do not come when nothing fails.
  std::vector<Message> newMessages(const Witness& witness) const;

  /// Messages that come when nothing fails are missing.
  bool missesMessages(const Witness& witness) const;

  /// What is thrown but the refusal of the second writer, which comes once in every life.
  static std::vector<std::string> newExceptions(const Witness& witness);

  /// What the run is about, once that is known.
  void rename(const std::string& newName);

  unsigned lives = 0;
  std::string name;  ///< of the run

 private:
  struct Ending {
    bool recovered;
    bool rested;
  };

  Ending lead(Witness& witness, Life::Effort effort);
  void checkRest(const Witness& witness, const Census& before);
  void clearRoot();
  void furnish() const;
  void listSockets() const;

  std::terminate_handler terminate_;
  std::map<int, void (*)(int)> signals_;
  SharedTable table;
  std::multiset<std::string> usual_;  // texts of messages
  unsigned problems_ = 0;
};

}  // namespace Zorbe::Test::Sweep
