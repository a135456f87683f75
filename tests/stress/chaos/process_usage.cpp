// SPDX-License-Identifier: MIT
#include "stress/chaos/process_usage.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace Zorbe::Test::Chaos {
namespace {

std::string folderOf(pid_t pid) {
  return "/proc/" + std::to_string(pid);
}

}  // namespace

// Each begins with a switch to another process that it asked for itself.
std::optional<uint64_t> sleepOf(pid_t pid) {
  std::ifstream status(folderOf(pid) + "/status");
  std::optional<uint64_t> switches;
  bool asleep = false;
  for (std::string name, rest; status >> name && std::getline(status, rest);) {
    if (name == "State:") asleep = rest.find('S') != std::string::npos;
    if (name == "voluntary_ctxt_switches:") switches = std::stoull(rest);
  }
  if (!switches) throw std::runtime_error("cannot read " + folderOf(pid));
  return asleep ? switches : std::nullopt;
}

long residentPagesOf(pid_t pid) {
  std::ifstream statm(folderOf(pid) + "/statm");
  long size = 0;
  long resident = 0;
  if (!(statm >> size >> resident)) throw std::runtime_error("cannot read " + folderOf(pid));
  return resident;
}

}  // namespace Zorbe::Test::Chaos
