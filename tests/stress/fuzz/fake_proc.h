// SPDX-License-Identifier: MIT
#pragma once

#include "stress/fuzz/input.h"

#include <sys/stat.h>

#include <string>
#include <vector>

namespace Zorbe::Test::Fuzz {

struct FakeDescriptor {
  int error = 0;  // of stat, 0: none
  mode_t mode = 0;
  uint64_t inode = 0;
};

struct FakeProcess {
  std::string name;
  int error = 0;  // of opening its fd directory
  std::vector<FakeDescriptor> descriptors;
};

/// A /proc with processes that the input decides.
struct FakeProc {
  explicit FakeProc(Input& input);

  /// From now until the input's end, opendir, readdir, closedir, stat and readlink work on it.
  /// It has to exist as long.
  void install() const;

  int error = 0;     // of opening /proc
  int endError = 0;  // of reading it after the last process
  std::vector<FakeProcess> processes;
  std::string executable;  // of each of them

 private:
  void add(Input& input);
};

}  // namespace Zorbe::Test::Fuzz
