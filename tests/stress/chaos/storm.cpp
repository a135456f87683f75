// SPDX-License-Identifier: MIT
#include "stress/chaos/storm.h"

#include <brask/linux/stream_debug_handler.h>
#include <sys/wait.h>
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <utility>

#include "stress/chaos/blows.h"
#include "stress/chaos/rest.h"
#include "support/test_root.h"

namespace Zorbe::Test::Chaos {
namespace {

volatile std::sig_atomic_t interrupted = 0;

class Storm {
 public:
  Storm(const Settings& settings, const TestRoot& root, Report& report)
      : settings_(settings),
        report_(report),
        crew_(settings.readers, root / "witness", settings.flaw),
        blows_(crew_, root / "quotes", settings.seed, report),
        rest_(crew_, settings.patience, report) {}

  void run() {
    begin();
    while (!isOver()) {
      if (interrupted) throw Failure("interrupted");
      blows_.burst(spanNow());
      converge();
      rest_.survey(isWarm());
    }
    end();
  }

  std::string trace() { return blows_.history() + crew_.logs(); }
  double elapsed() const { return std::chrono::duration<double>(Clock::now() - began_).count(); }

 private:
  void begin() {
    crew_.candidate().start();
    for (Member& reader : crew_.readers()) reader.start();
    if (settings_.flaw == Flaw::ignoresTheLock) crew_.competitor().start();
    converge();
    rest_.survey(false);
  }

  void end() {
    crew_.forEach([](Member& member) {
      if (member.isStopped()) member.goOn();
    });
    converge();
    rest_.survey(isWarm());
    crew_.forEach([](Member& member) {
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
    constexpr unsigned fewestKills = 50;
    if (report_.kills < fewestKills) return false;
    if (settings_.kills > 0) return report_.kills >= settings_.kills / 10;
    return elapsed() >= settings_.seconds / 10.0;
  }

  // In every fourth span the writer is not killed, so that there are some that live long, and in
  // another one everybody has to get over each single blow.
  Blows::Span spanNow() const {
    constexpr unsigned spans = 4;
    const unsigned span = report_.kills / killsPerSpan() % spans;
    return {span == 1, span == spans - 1};
  }

  unsigned killsPerSpan() const {
    constexpr unsigned fewest = 10;
    constexpr unsigned most = 250;
    return settings_.kills > 0 ? std::clamp(settings_.kills / 16, fewest, most) : most;
  }

  void converge() {
    crew_.publish(1);
    const auto start = Clock::now();
    if (!crew_.await(start + settings_.patience, [&] { return isConverged(); }))
      throw Failure("not converged: " + crew_.describe());
    const std::chrono::duration<double, std::milli> took = Clock::now() - start;
    const pid_t writer = crew_.writer()->pid();
    const bool same = std::exchange(writer_, writer) == writer;
    (same ? report_.underSame : report_.underAnother).push_back(took.count());
    for (Member& reader : crew_.readers()) {
      if (!reader.isAwake()) continue;
      reader.requireTold(writer);
      reader.owe(writer);
    }
  }

  // In the directory, too: after it was removed, the writer's table is another one.
  bool isConverged() {
    return crew_.isConverged() && blows_.isInPlace(crew_.writer()->place().fenix);
  }

  const Settings& settings_;
  Report& report_;
  Clock::time_point began_ = Clock::now();
  pid_t writer_ = 0;
  Crew crew_;
  Blows blows_;
  Rest rest_;
};

void lead(const Settings& settings, const TestRoot& root, Report& report) {
  Storm storm(settings, root, report);
  try {
    storm.run();
  } catch (const std::exception& failure) {
    report.failure = failure.what();
    report.trace = storm.trace();
  }
  report.seconds = storm.elapsed();
}

std::string whatIsLeft() {
  if (::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD) return "a process is left";
  Brask::Linux::StreamDebugHandler log(std::cerr, 0);
  try {
    Util::releaseWriterLock(log, Util::acquireWriterLock(log, RootPath(log, "quotes", true)));
  } catch (const Brask::Exception& refusal) {
    return std::string("the lock's name is left: ") + refusal.what();
  }
  return "";
}

}  // namespace

void interrupt() noexcept {
  interrupted = 1;
}

Report conduct(const Settings& settings) {
  Report report;
  std::string path;
  {
    const TestRoot root;
    path = root.path();
    lead(settings, root, report);
    if (report.failure.empty()) report.failure = whatIsLeft();
  }
  if (report.failure.empty() && std::filesystem::exists(path)) report.failure = path + " is left";
  std::sort(report.underSame.begin(), report.underSame.end());
  std::sort(report.underAnother.begin(), report.underAnother.end());
  return report;
}

}  // namespace Zorbe::Test::Chaos
