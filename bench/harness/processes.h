// SPDX-License-Identifier: MIT
//
// Processes of a benchmark: their CPU, their start and their end.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace Bench {

/// Throws std::system_error for a system call that failed.
[[noreturn]] void failed(const std::string& what);

/// Returns the result of a system call, or throws what `failed` throws when it is negative.
int check(int result, const char* what);

/// Lets the calling thread, and what it starts, run on one CPU only.
void pinTo(int cpu);

int cpuCount();

/// Raises the limit of open descriptors to its maximum and returns it.
long raiseDescriptorLimit();

/// Children that are copies of the caller. Each waits for `release` before it runs its body,
/// and is killed when this object is destroyed or the process that made it ends.
class Children {
 public:
  Children();
  ~Children();
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  /// Starts one more; with `cpu` -1 it runs where its parent runs.
  void start(int cpu, const std::function<void()>& body);

  /// Lets all that were started run their bodies.
  void release();

  /// Waits until all have ended by themselves; throws when one has failed.
  void wait();

  const std::vector<pid_t>& pids() const { return pids_; }

 private:
  [[noreturn]] void live(int cpu, const std::function<void()>& body);

  int gate_[2];
  std::vector<pid_t> pids_;
};

/// Runs `body` in a process of its own, for libraries that can be started only once.
/// Throws when it failed.
void runApart(const std::function<void()>& body);

/// Starts a program, silenced, that ends with the caller; returns its pid.
/// `name` is what the program sees as its own name.
pid_t startProgram(const std::string& path, const std::string& name,
                   const std::vector<std::string>& arguments);

/// Returns when `reached` returns true; throws when that takes too long.
void waitUntil(const std::string& what, const std::function<bool()>& reached);

/// Kills a child and waits for its end.
void endChild(pid_t pid);

/// Nanoseconds of processor time that a process has used, with all its threads.
double processorTime(pid_t pid);

/// Resident bytes that belong to this process alone, not to files.
double ownMemory();

/// Memory that children share with their parent, zeroed. Never unmapped.
void* sharedMemory(size_t size);

template <typename Type>
Type* shared() {
  return new (sharedMemory(sizeof(Type))) Type;
}

/// A temporary directory, removed with all it holds.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace Bench
