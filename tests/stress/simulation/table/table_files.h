// SPDX-License-Identifier: MIT
//
// The files of a simulated table. Their names belong to the model of the file system, which
// reports changes; their bytes are real files, so that processes map them.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>

#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {

/// The directory of the table in the simulated world.
inline constexpr const char* kTableDirectory = "/shmem/table";

class TableFiles : private NonCopyable {
 public:
  /// A broken kernel, for tests of the simulation: what writers store to files that they map
  /// later than the first ones reaches nobody.
  enum class Stores { kShared, kLost };

  TableFiles(World& world, Stores stores);
  ~TableFiles();

  /// From now on simulated processes reach the files of the one that was made last.
  static void divertCalls();

  /// Nothing more can be allocated.
  void setFull(bool full) { full_ = full; }

  /// Right before a process is killed: what it stores from here on reaches nobody.
  void detach(const Process& process);

  // The calls of the running process.
  int open(const char* path, int flags, mode_t mode);
  int link(const char* from, const char* to);
  int rename(const char* from, const char* to);
  int unlink(const char* path);
  int lstat(const char* path, struct stat* status) const;
  void* map(void* address, size_t length, int protection, int flags, int fd);
  void* remap(void* address, size_t oldLength, size_t length, int flags);
  int unmap(void* address, size_t length);
  bool isFull() const { return full_; }

  static TableFiles* current() { return current_; }

 private:
  struct Mapping {
    int pid;
    size_t length;
    int fd;
  };

  std::string real(const std::string& path) const;
  std::string realDirectory(const std::string& path) const;
  void forget(void* address);

  static TableFiles* current_;

  World& world_;
  std::string root_;  // in memory, where there is such a file system
  std::map<void*, Mapping> writable_;
  Stores stores_;
  unsigned mappings_ = 0;  // writable ones so far
  bool full_ = false;
};

}  // namespace Zorbe::Test::Simulation
