// SPDX-License-Identifier: MIT
//
// The statistics of samples, and the comparison of several subjects in one run: their blocks
// alternate, so that a disturbance of the machine affects all of them, and each block is compared
// with the baseline's block of the same turn.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// A median and the interquartile range around it.
struct Spread {
  double median = 0;
  double low = 0;   // first quartile
  double high = 0;  // third quartile
};

/// The value below which `part` (0 to 1) of the samples lie. There is at least one sample.
double quantile(std::vector<double> samples, double part);

Spread spreadOf(const std::vector<double>& samples);

/// One subject of a comparison: `block` runs one block and returns its samples.
struct Subject {
  std::string name;
  std::function<std::vector<double>()> block;
};

/// What was measured of one subject. The ratios are to the first subject.
struct Outcome {
  std::string name;
  Spread median;
  Spread p99;
  Spread medianRatio;
  Spread p99Ratio;
};

/// Runs `blocks` blocks of every subject, taking turns; the first turn warms up and is not
/// counted.
std::vector<Outcome> compare(const std::vector<Subject>& subjects, int blocks);

/// Nanoseconds of the monotonic clock.
double nanoseconds();

/// The time of each of `count` calls.
std::vector<double> timeEach(int count, const std::function<void()>& work);

/// The time of one of `count` calls, too short to be timed alone.
std::vector<double> timeTogether(int count, const std::function<void()>& all);

}  // namespace Bench
