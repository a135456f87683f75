// SPDX-License-Identifier: MIT
//
// The k-th system call of a whole scenario fails, for every k and in every way.
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
  void sweep(Scenario::Effort effort, unsigned count, unsigned step) {
    learnBaseline(effort);
    lasting = count == Fault::kForever;
    for (unsigned nth = 1;; nth += step) {
      size_t ways = 1;
      for (size_t way = 0; way < ways; ++way) {
        if (hasManyProblems()) return;
        fired = false;
        failure.reset();
        failWay(nth, way, effort, count);
        if (!fired) return finish(nth - 1);
        ways = failures.size();
      }
    }
  }

 private:
  void failWay(unsigned nth, size_t way, Scenario::Effort effort, unsigned count) {
    const auto choose = [=](const Fault::InterceptedCall& call) { return pick(call, nth, way); };
    runScenario({"call " + std::to_string(nth), effort, [&] { Fault::armAny(nth, choose, count); },
                 [&](const EventRecorder& recorder) { checkReported(recorder); }});
  }

  std::optional<Fault::Failure> pick(const Fault::InterceptedCall& call, unsigned nth, size_t way) {
    const Fault::Bypass bypass;
    fired = true;
    failed = call;
    failures = failuresOf(call.call, nth);
    if (way >= failures.size() || isEndless(failures[way], call)) return std::nullopt;
    failure = failures[way];
    rename(name + ": " + describe(failed, *failure));
    return failure;
  }

  // The standard library's streams read and write again for as long as they are interrupted;
  // with a lasting failure they never end.
  bool isEndless(const Fault::Failure& chosen, const Fault::InterceptedCall& call) const {
    return lasting && chosen.error == EINTR &&
           (call.call == "read" || call.call == "write" || call.call == "writev");
  }

  bool reports(const Message& message) const {
    if (failure->result) return true;
    // The message about an opened socket has any errno.
    return !contains(message.text, " success ") &&
           (contains(message.text, std::strerror(failure->error)) ||
            contains(message.text, strerrorname_np(failure->error)));
  }

  /// Whether a message reports it that does not come when nothing fails.
  bool isReported(const EventRecorder& recorder) const {
    const std::vector<Message> messages = newMessages(recorder);
    return std::any_of(messages.begin(), messages.end(),
                       [this](const Message& message) { return reports(message); });
  }

  void checkReported(const EventRecorder& recorder) {
    if (!failure || !newExceptions(recorder).empty() || isReported(recorder)) return;
    if (whyHarmless(failed, *failure).empty()) report("is not reported");
  }

  void finish(unsigned calls) const {
    std::cout << "fault sweep: " << calls << " calls, " << runs << " runs\n";
  }

  bool lasting = false;
  bool fired = false;
  Fault::InterceptedCall failed;
  std::optional<Fault::Failure> failure;
  std::vector<Fault::Failure> failures;
};

TEST_F(FaultSweepTest, EachSingleFailureIsReportedAndSurvived) {
  sweep(Scenario::Effort::kNormal, 1, 1);
}

TEST_F(FaultSweepTest, EachLastingFailureIsReportedAndLeaksNothing) {
  sweep(Scenario::Effort::kSmall, Fault::kForever, isFull() ? 1 : 4);
}

}  // namespace
}  // namespace Zorbe::Test::Sweep
