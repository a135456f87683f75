// SPDX-License-Identifier: MIT
//
// chaos --kills N      that many kills; --seconds N: for that long. With both, a run that has
//                      not reached its kills in time fails.
//       --seed N       another seed than the clock's
//       --readers N    20 when not given
//
// Without arguments: the tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "stress/chaos/stress_run.h"
#include "support/number.h"
#include "support/sanitized.h"

namespace {

using namespace Zorbe::Test::Chaos;

double slowest(const std::vector<double>& times) {
  return times.empty() ? 0 : times.back();
}

void printTimes(const char* what, const std::vector<double>& times) {
  if (times.empty()) return;
  std::printf("  %6zu convergences %s, %.1f ms median, %.0f ms slowest\n", times.size(), what,
              times[times.size() / 2], slowest(times));
}

void printDetails(const Report& report) {
  for (const auto& [kind, count] : report.faultsByKind)
    std::printf("  %6u %s\n", count, kind.c_str());
  printTimes("under the same writer", report.underSame);
  printTimes("under another writer", report.underAnother);
  std::printf("  readers that are never killed: %ld -> %ld descriptors, %ld -> %ld pages\n",
              report.descriptors.first.value_or(0), report.descriptors.last,
              report.pages.first.value_or(0), report.pages.last);
  std::printf("  a writer lived through %u checks; writers grew by %ld pages at most\n",
              report.longestWriter, report.writerGrowth);
}

// Memory is judged after a warm-up, which has to have come to its end.
const char* verdict(const Report& report) {
  if (!report.failure.empty()) return "";
  const bool judged = report.pages.first && !Zorbe::Test::kIsSanitized;
  return judged ? ", descriptors and memory flat" : ", descriptors flat";
}

std::string commandOf(const char* program, const Settings& settings) {
  std::string command = program;
  const auto add = [&command](const char* name, uint64_t number) {
    if (number > 0) command += std::string(" ") + name + " " + std::to_string(number);
  };
  add("--kills", settings.kills);
  add("--seconds", settings.seconds);
  add("--readers", settings.readers);
  return command + " --seed " + std::to_string(settings.seed);
}

int run(const char* program, const Settings& settings) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(settings.seed));
  std::fflush(stdout);
  const Report report = runStress(settings);
  const bool good = report.failure.empty();
  if (!good) std::printf("%s\nFAILED: %s\n", report.trace.c_str(), report.failure.c_str());
  printDetails(report);
  std::printf("%u kills, %u faults in %.0f s, slowest convergence %.0f ms%s\n", report.kills,
              report.faults, report.seconds,
              std::max(slowest(report.underSame), slowest(report.underAnother)), verdict(report));
  // At the end of the log, where it is found.
  if (!good) std::printf("to repeat: %s\n", commandOf(program, settings).c_str());
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

struct Option {
  const char* name;
  Zorbe::Test::Range range;
  void (*set)(Settings& settings, uint64_t number);
};

constexpr uint64_t kMostAtAll = std::numeric_limits<unsigned>::max();

const Option kOptions[] = {
    {"--kills",
     {1, kMostAtAll},
     [](Settings& settings, uint64_t number) { settings.kills = static_cast<unsigned>(number); }},
    {"--seconds",
     {1, kMostAtAll},
     [](Settings& settings, uint64_t number) { settings.seconds = static_cast<unsigned>(number); }},
    {"--readers",
     {kFewestReaders, kMostReaders},
     [](Settings& settings, uint64_t number) { settings.readers = static_cast<unsigned>(number); }},
    {"--seed",
     {0, std::numeric_limits<uint64_t>::max()},
     [](Settings& settings, uint64_t number) { settings.seed = number; }},
};

/// Returns what is wrong with them, or nothing.
std::string readOption(Settings& settings, const std::string& name, const char* value) {
  for (const Option& option : kOptions) {
    if (name != option.name) continue;
    const auto number = value ? Zorbe::Test::readNumber(value, option.range) : std::nullopt;
    if (!number) return name + " needs " + Zorbe::Test::describe(option.range);
    option.set(settings, *number);
    return "";
  }
  return "no such option: " + name;
}

std::string readOptions(Settings& settings, int argc, char** argv) {
  for (int i = 1; i < argc; i += 2) {
    std::string wrong = readOption(settings, argv[i], argv[i + 1]);  // argv ends with a null
    if (!wrong.empty()) return wrong;
  }
  if (settings.kills == 0 && settings.seconds == 0)
    return "--kills or --seconds: else it never ends";
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (argc == 1) return RUN_ALL_TESTS();
  Settings settings;
  settings.seed =
      static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
  const std::string wrong = readOptions(settings, argc, argv);
  if (!wrong.empty()) {
    std::fprintf(stderr,
                 "chaos: %s\nusage: chaos [--kills N] [--seconds N] [--seed N] [--readers N]\n",
                 wrong.c_str());
    return 2;
  }
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { interrupt(); });
  return run(argv[0], settings);
}
