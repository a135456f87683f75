// SPDX-License-Identifier: MIT
#include "harness/statistics.h"

#include <algorithm>
#include <chrono>
#include <cstddef>

namespace Bench {

namespace {

struct Blocks {
  std::vector<double> medians;
  std::vector<double> p99s;
};

std::vector<double> divide(const std::vector<double>& left, const std::vector<double>& right) {
  std::vector<double> ratios;
  for (size_t each = 0; each < left.size(); ++each) ratios.push_back(left[each] / right[each]);
  return ratios;
}

Outcome outcomeOf(const std::string& name, const Blocks& own, const Blocks& baseline) {
  return {name, spreadOf(own.medians), spreadOf(own.p99s),
          spreadOf(divide(own.medians, baseline.medians)),
          spreadOf(divide(own.p99s, baseline.p99s))};
}

}  // namespace

double quantile(std::vector<double> samples, double part) {
  const auto last = static_cast<double>(samples.size() - 1);
  const auto position = static_cast<std::ptrdiff_t>(part * last + 0.5);
  std::nth_element(samples.begin(), samples.begin() + position, samples.end());
  return samples[static_cast<size_t>(position)];
}

Spread spreadOf(const std::vector<double>& samples) {
  return {quantile(samples, 0.5), quantile(samples, 0.25), quantile(samples, 0.75)};
}

std::vector<Outcome> compare(const std::vector<Subject>& subjects, int blocks) {
  std::vector<Blocks> measured(subjects.size());
  for (int turn = 0; turn <= blocks; ++turn) {
    for (size_t each = 0; each < subjects.size(); ++each) {
      const size_t subject = (each + static_cast<size_t>(turn)) % subjects.size();
      const std::vector<double> samples = subjects[subject].block();
      if (turn == 0) continue;
      measured[subject].medians.push_back(quantile(samples, 0.5));
      measured[subject].p99s.push_back(quantile(samples, 0.99));
    }
  }
  std::vector<Outcome> outcomes;
  for (size_t each = 0; each < subjects.size(); ++each) {
    outcomes.push_back(outcomeOf(subjects[each].name, measured[each], measured.front()));
  }
  return outcomes;
}

double nanoseconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

std::vector<double> timeEach(int count, const std::function<void()>& work) {
  std::vector<double> times;
  times.reserve(static_cast<size_t>(count));
  double before = nanoseconds();
  for (int each = 0; each < count; ++each) {
    work();
    const double after = nanoseconds();
    times.push_back(after - before);
    before = after;
  }
  return times;
}

std::vector<double> timeTogether(int count, const std::function<void()>& all) {
  const double before = nanoseconds();
  all();
  return {(nanoseconds() - before) / count};
}

}  // namespace Bench
