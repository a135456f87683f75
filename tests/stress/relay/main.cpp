// SPDX-License-Identifier: MIT
//
// relay_chaos --seconds N    for that long
//             --rounds N     so many bursts of events
//             --seed N       another seed than the clock's
//             --timeout N    seconds that all tables may take to become equal, instead of 60
//             --without KIND one kind of events, as it is named in the report, never happens
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <map>
#include <string>

#include "stress/relay/hosts.h"
#include "stress/relay/relay_run.h"
#include "support/number.h"

namespace {

using namespace Zorbe::Test::RelayChaos;

void print(const Report& report) {
  for (const auto& [kind, count] : report.byKind) std::printf("  %6u %s\n", count, kind.c_str());
  std::printf(
      "%u rounds, %u events, %u kills in %.0f s, %llu changes written, %llu followed, "
      "all tables equal within %.1f s\n",
      report.rounds, report.events, report.kills, report.seconds,
      static_cast<unsigned long long>(report.written),
      static_cast<unsigned long long>(report.followed), report.slowest);
}

int runOnce(const char* program, const Settings& settings) {
  std::cout << "seed " << settings.seed << std::endl;
  const Report report = run(settings);
  if (report.failure.empty()) {
    print(report);
    return EXIT_SUCCESS;
  }
  std::cout << report.trace << "\nFAILED in round " << report.rounds << ": " << report.failure
            << "\nto repeat: " << program << " --rounds " << report.rounds << " --seed "
            << settings.seed << std::endl;
  return EXIT_FAILURE;
}

/// Returns what is wrong with the arguments, or nothing.
std::string read(Settings& settings, int argc, char** argv) {
  constexpr uint64_t kMost = std::numeric_limits<unsigned>::max();
  std::map<std::string, uint64_t> numbers = {{"--seconds", 0}, {"--rounds", 0}};
  numbers["--seed"] = settings.seed;
  numbers["--timeout"] = static_cast<uint64_t>(settings.timeout.count());
  for (int i = 1; i < argc; i += 2) {
    if (std::string(argv[i]) == "--without" && i + 1 < argc) {
      settings.without.emplace_back(argv[i + 1]);
      continue;
    }
    const auto option = numbers.find(argv[i]);
    if (option == numbers.end()) return std::string("no such option: ") + argv[i];
    const Zorbe::Test::Range range{0, option->first == "--seed" ? ~uint64_t{0} : kMost};
    const auto number = i + 1 < argc ? Zorbe::Test::readNumber(argv[i + 1], range) : std::nullopt;
    if (!number) return option->first + " needs " + Zorbe::Test::describe(range);
    option->second = *number;
  }
  settings.seconds = static_cast<unsigned>(numbers["--seconds"]);
  settings.rounds = static_cast<unsigned>(numbers["--rounds"]);
  settings.seed = numbers["--seed"];
  settings.timeout = std::chrono::seconds(numbers["--timeout"]);
  return settings.seconds + settings.rounds > 0 ? "" : "--seconds or --rounds: else it never ends";
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings;
  settings.seed =
      static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
  if (const std::string wrong = read(settings, argc, argv); !wrong.empty()) {
    std::cerr << "relay_chaos: " << wrong
              << "\nusage: relay_chaos [--seconds N] [--rounds N] [--seed N] [--timeout N] "
                 "[--without KIND]...\n";
    return 2;
  }
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { interrupt(); });
  try {
    return runOnce(argv[0], settings);
  } catch (const std::exception& problem) {
    std::cerr << "relay_chaos: " << problem.what() << "\n";
    return 2;
  }
}
