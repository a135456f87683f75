// SPDX-License-Identifier: MIT
#include "host/process_start.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace Zorbe::Tool {

namespace {

std::string content(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The kernel's own sum of both clocks: the same at each look, unlike a difference of two clocks
// that are read one after the other.
std::optional<double> bootTime() {
  std::istringstream lines(content("/proc/stat"));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("btime ", 0) == 0) return std::strtod(line.c_str() + 6, nullptr);
  }
  return std::nullopt;
}

// Field 22 of the process's stat, in clock ticks since the boot: see proc(5). The second field is
// a name, which may contain anything.
std::optional<double> ticksOf(pid_t pid) {
  constexpr int kFieldsBefore = 19;  // from the third one on
  const std::string text = content("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t name = text.rfind(") ");
  if (name == std::string::npos) return std::nullopt;
  std::istringstream fields(text.substr(name + 2));
  std::string field;
  for (int i = 0; i < kFieldsBefore; ++i) fields >> field;
  double ticks = 0;
  if (!(fields >> ticks)) return std::nullopt;
  return ticks;
}

}  // namespace

std::optional<double> StartTimes::of(pid_t pid) {
  const auto [place, isNew] = known_.try_emplace(pid);
  if (!isNew) return place->second;
  if (!boot_) boot_ = bootTime();
  const std::optional<double> ticks = ticksOf(pid);
  const auto perSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
  if (boot_ && ticks && perSecond > 0) place->second = *boot_ + *ticks / perSecond;
  return place->second;
}

}  // namespace Zorbe::Tool
