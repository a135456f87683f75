// SPDX-License-Identifier: MIT
//
// The k-th system call of a whole life fails, for every k and in every way.
#include <algorithm>
#include <cstring>

#include "stress/sweep/failures.h"
#include "stress/sweep/sweep_fixture.h"

namespace Zorbe::Test::Sweep {
namespace {

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class FaultSweepTest : public SweepTest {
 protected:
  void sweep(Life::Effort effort, unsigned count, unsigned step) {
    liveAsUsual(effort);
    lasting = count == Fault::forever;
    for (unsigned nth = 1;; nth += step) {
      size_t ways = 1;
      for (size_t way = 0; way < ways; ++way) {
        if (hasEnough()) return;
        struck = false;
        failure.reset();
        failWay(nth, way, effort, count);
        if (!struck) return finish(nth - 1);
        ways = failures.size();
      }
    }
  }

 private:
  void failWay(unsigned nth, size_t way, Life::Effort effort, unsigned count) {
    const auto choose = [=](const Fault::Victim& call) { return pick(call, nth, way); };
    live({"call " + std::to_string(nth), effort, [&] { Fault::armAny(nth, choose, count); },
          [&](const Witness& witness) { checkTold(witness); }});
  }

  std::optional<Fault::Failure> pick(const Fault::Victim& call, unsigned nth, size_t way) {
    const Fault::Bypass bypass;
    struck = true;
    victim = call;
    failures = failuresOf(call.call, nth);
    if (way >= failures.size() || isEndless(failures[way], call)) return std::nullopt;
    failure = failures[way];
    rename(name + ": " + describe(victim, *failure));
    return failure;
  }

  // The standard library's streams read and write again for as long as they are interrupted;
  // what fails for good fails for them, too.
  bool isEndless(const Fault::Failure& chosen, const Fault::Victim& call) const {
    return lasting && chosen.error == EINTR &&
           (call.call == "read" || call.call == "write" || call.call == "writev");
  }

  bool tells(const Message& message) const {
    if (failure->result) return true;
    // Whatever errno holds when a socket was opened is in its message.
    return !contains(message.text, " success ") &&
           (contains(message.text, std::strerror(failure->error)) ||
            contains(message.text, strerrorname_np(failure->error)));
  }

  /// Whether a message says so that does not come when nothing fails.
  bool isTold(const Witness& witness) const {
    const std::vector<Message> messages = newMessages(witness);
    return std::any_of(messages.begin(), messages.end(),
                       [this](const Message& message) { return tells(message); });
  }

  void checkTold(const Witness& witness) {
    if (!failure || !newExceptions(witness).empty() || isTold(witness)) return;
    if (whyHarmless(victim, *failure).empty()) complain("nobody hears of it");
  }

  void finish(unsigned calls) const {
    std::cout << "fault sweep: " << calls << " calls, " << lives << " lives\n";
  }

  bool lasting = false;
  bool struck = false;
  Fault::Victim victim;
  std::optional<Fault::Failure> failure;
  std::vector<Fault::Failure> failures;
};

TEST_F(FaultSweepTest, EachSingleFailureIsToldAndOutlived) {
  sweep(Life::Effort::normal, 1, 1);
}

TEST_F(FaultSweepTest, EachLastingFailureIsToldAndLeaksNothing) {
  sweep(Life::Effort::small, Fault::forever, isFull() ? 1 : 4);
}

}  // namespace
}  // namespace Zorbe::Test::Sweep
