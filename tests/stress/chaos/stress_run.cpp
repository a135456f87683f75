// SPDX-License-Identifier: MIT
#include "stress/chaos/stress_run.h"

#include <brask/linux/stream_debug_handler.h>
#include <sys/wait.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <utility>

#include "stress/chaos/client_context.h"
#include "stress/chaos/faults.h"
#include "stress/chaos/idle_check.h"
#include "stress/chaos/probe.h"
#include "support/test_root.h"

namespace Zorbe::Test::Chaos {
namespace {

// The writer publishes ten times a second who reads: a check waits for that.
constexpr unsigned kBurstsPerCheckOfWriter = 4;

volatile std::sig_atomic_t interrupted = 0;

class StressRun {
 public:
  StressRun(const Settings& settings, const TestRoot& root, Report& report)
      : settings_(settings),
        report_(report),
        processes_(settings.readers, root / "writers", settings.flaw),
        faults_(processes_, root / kTableName, settings.seed, report),
        probe_(processes_.shared(), root / kTableName),
        idleCheck_(processes_, probe_, settings.timeout, report) {}

  void run() {
    begin();
    while (!isOver()) {
      if (interrupted) throw Failure("interrupted");
      faults_.burst(spanNow());
      converge();
      idleCheck_.check(isWarm());
      if (++bursts_ % kBurstsPerCheckOfWriter == 0) idleCheck_.checkWriter();
    }
    end();
  }

  std::string trace() { return faults_.history() + processes_.logs(); }
  double elapsed() const { return std::chrono::duration<double>(Clock::now() - began_).count(); }

 private:
  void begin() {
    processes_.candidate().start();
    for (Member& reader : processes_.readers()) reader.start();
    if (settings_.flaw == Flaw::kIgnoresTheLock) processes_.competitor().start();
    converge();
    idleCheck_.check(false);
  }

  void end() {
    processes_.forEach([](Member& member) {
      if (member.isStopped()) member.resume();
    });
    converge();
    idleCheck_.check(isWarm());
    idleCheck_.checkWriter();
    processes_.forEach([](Member& member) {
      if (member.isAlive()) member.leave();
    });
  }

  bool isOver() const {
    const bool late = settings_.seconds > 0 && elapsed() >= settings_.seconds;
    if (settings_.kills == 0) return late;
    if (report_.kills >= settings_.kills) return true;
    if (!late) return false;
    throw Failure("only " + std::to_string(report_.kills) + " of " +
                  std::to_string(settings_.kills) + " kills in " +
                  std::to_string(settings_.seconds) + " s");
  }

  // The first tenth, as it is planned.
  bool isWarm() const {
    constexpr unsigned kFewestKills = 50;
    if (report_.kills < kFewestKills) return false;
    if (settings_.kills > 0) return report_.kills >= settings_.kills / 10;
    return elapsed() >= settings_.seconds / 10.0;
  }

  // In every fourth span the writer is not killed, so that some writers live long. In another one
  // the processes have to converge after each single fault.
  Faults::Span spanNow() const {
    constexpr unsigned kSpans = 4;
    const unsigned span = report_.kills / killsPerSpan() % kSpans;
    return {span == 1, span == kSpans - 1};
  }

  unsigned killsPerSpan() const {
    constexpr unsigned kFewest = 10;
    constexpr unsigned kMost = 250;
    return settings_.kills > 0 ? std::clamp(settings_.kills / 16, kFewest, kMost) : kMost;
  }

  void converge() {
    processes_.publish(1);
    const auto start = Clock::now();
    if (!processes_.await(start + settings_.timeout, [&] { return isConverged(); }))
      throw Failure("not converged: " + processes_.describe(probe_));
    const std::chrono::duration<double, std::milli> took = Clock::now() - start;
    const pid_t writer = processes_.writer()->pid();
    const bool same = std::exchange(writer_, writer) == writer;
    (same ? report_.underSame : report_.underAnother).push_back(took.count());
    probe_.verify();
    processes_.shared().removed = false;  // a writer that lives has made it again
  }

  bool isConverged() { return probe_.look() && processes_.isConverged(probe_); }

  const Settings& settings_;
  Report& report_;
  Clock::time_point began_ = Clock::now();
  pid_t writer_ = 0;
  Processes processes_;
  Faults faults_;
  Probe probe_;
  IdleCheck idleCheck_;
  unsigned bursts_ = 0;
};

void execute(const Settings& settings, const TestRoot& root, Report& report) {
  StressRun stressRun(settings, root, report);
  try {
    stressRun.run();
  } catch (const std::exception& failure) {
    report.failure = failure.what();
    report.trace = stressRun.trace();
  }
  report.seconds = stressRun.elapsed();
}

std::string whatIsLeft() {
  if (::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD) return "a process is left";
  Brask::Linux::StreamDebugHandler log(std::cerr, 0);
  try {
    Util::releaseWriterLock(log, Util::acquireWriterLock(log, RootPath(log, kTableName, true)));
  } catch (const Brask::Exception& refusal) {
    return std::string("the lock's name is left: ") + refusal.what();
  }
  return "";
}

}  // namespace

void interrupt() noexcept {
  interrupted = 1;
}

Report runStress(const Settings& settings) {
  Report report;
  std::string path;
  {
    const TestRoot root;
    path = root.path();
    execute(settings, root, report);
    if (report.failure.empty()) report.failure = whatIsLeft();
  }
  if (report.failure.empty() && std::filesystem::exists(path)) report.failure = path + " is left";
  std::sort(report.underSame.begin(), report.underSame.end());
  std::sort(report.underAnother.begin(), report.underAnother.end());
  return report;
}

}  // namespace Zorbe::Test::Chaos
