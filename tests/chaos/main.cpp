// SPDX-License-Identifier: MIT
//
// chaos --kills N      that many kills; --seconds N: for that long, or whichever is over first
//       --seed N       another seed than the clock's
//       --readers N    20 when not given
//
// Without --kills and --seconds: the tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "chaos/storm.h"
#include "fakes/sanitized.h"

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
  for (const auto& [kind, count] : report.blowsByKind)
    std::printf("  %6u %s\n", count, kind.c_str());
  printTimes("under the same writer", report.underSame);
  printTimes("under another writer", report.underAnother);
  std::printf("  readers that are never killed: %ld -> %ld descriptors, %ld -> %ld pages\n",
              report.descriptors.first.value_or(0), report.descriptors.last,
              report.pages.first.value_or(0), report.pages.last);
  std::printf("  a writer lived through %u rests; writers grew by %ld pages at most\n",
              report.longestWriter, report.writerGrowth);
}

// Memory is judged after a warm-up, which has to have come to its end.
const char* verdict(const Report& report) {
  if (!report.failure.empty()) return "";
  const bool judged = report.pages.first && !Zorbe::Test::isSanitized;
  return judged ? ", descriptors and memory flat" : ", descriptors flat";
}

int run(const Settings& settings) {
  std::printf("seed %llu\n", static_cast<unsigned long long>(settings.seed));
  std::fflush(stdout);
  const Report report = conduct(settings);
  const bool good = report.failure.empty();
  if (!good) std::printf("%s\nFAILED: %s\n", report.trace.c_str(), report.failure.c_str());
  printDetails(report);
  std::printf("%u kills, %u blows in %.0f s, slowest convergence %.0f ms%s\n", report.kills,
              report.blows, report.seconds,
              std::max(slowest(report.underSame), slowest(report.underAnother)), verdict(report));
  return good ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool readOption(Settings& settings, const std::string& name, const char* value) {
  const unsigned long long number = std::strtoull(value, nullptr, 10);
  if (name == "--kills")
    settings.kills = static_cast<unsigned>(number);
  else if (name == "--seconds")
    settings.seconds = static_cast<unsigned>(number);
  else if (name == "--readers")
    settings.readers = static_cast<unsigned>(number);
  else if (name == "--seed")
    settings.seed = number;
  else
    return false;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (argc == 1) return RUN_ALL_TESTS();
  Settings settings;
  settings.seed =
      static_cast<uint64_t>(std::chrono::system_clock::now().time_since_epoch().count());
  for (int i = 1; i < argc; i += 2) {
    if (i + 1 < argc && readOption(settings, argv[i], argv[i + 1])) continue;
    std::fprintf(stderr, "usage: chaos [--kills N] [--seconds N] [--seed N] [--readers N]\n");
    return 2;
  }
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, [](int) { interrupt(); });
  return run(settings);
}
