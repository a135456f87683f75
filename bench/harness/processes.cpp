// SPDX-License-Identifier: MIT
#include "harness/processes.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "harness/statistics.h"

namespace Bench {

void failed(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

int check(int result, const char* what) {
  if (result < 0) failed(what);
  return result;
}

void pinTo(int cpu) {
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(static_cast<size_t>(cpu), &set);
  check(::sched_setaffinity(0, sizeof set, &set), "sched_setaffinity()");
}

int cpuCount() {
  return static_cast<int>(::sysconf(_SC_NPROCESSORS_ONLN));
}

long raiseDescriptorLimit() {
  rlimit limit{};
  check(::getrlimit(RLIMIT_NOFILE, &limit), "getrlimit()");
  limit.rlim_cur = limit.rlim_max;
  check(::setrlimit(RLIMIT_NOFILE, &limit), "setrlimit()");
  return static_cast<long>(limit.rlim_cur);
}

Children::Children() {
  check(::pipe2(gate_, O_CLOEXEC), "pipe2()");
}

Children::~Children() {
  for (const pid_t pid : pids_) endChild(pid);
  static_cast<void>(::close(gate_[0]));
  static_cast<void>(::close(gate_[1]));
}

void Children::start(int cpu, const std::function<void()>& body) {
  const pid_t pid = check(::fork(), "fork()");
  if (pid == 0) live(cpu, body);
  pids_.push_back(pid);
}

void Children::live(int cpu, const std::function<void()>& body) {
  int status = EXIT_SUCCESS;
  try {
    check(::prctl(PR_SET_PDEATHSIG, SIGKILL), "prctl()");
    if (cpu >= 0) pinTo(cpu);
    char go = 0;
    if (::read(gate_[0], &go, 1) == 1) body();
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "child %d: %s\n", ::getpid(), problem.what());
    status = EXIT_FAILURE;
  }
  ::_exit(status);
}

void Children::release() {
  const std::string go(pids_.size(), '!');
  if (::write(gate_[1], go.data(), go.size()) != static_cast<ssize_t>(go.size())) {
    failed("write() to the children");
  }
}

void Children::wait() {
  bool good = true;
  for (const pid_t pid : pids_) {
    int status = 0;
    check(::waitpid(pid, &status, 0), "waitpid()");
    good = good && status == 0;
  }
  pids_.clear();
  if (!good) throw std::runtime_error("a process of the benchmark has failed");
}

void runApart(const std::function<void()>& body) {
  Children process;
  process.start(-1, body);
  process.release();
  process.wait();
}

pid_t startProgram(const std::string& path, const std::string& name,
                   const std::vector<std::string>& arguments) {
  std::vector<char*> argv{const_cast<char*>(name.c_str())};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t pid = check(::fork(), "fork()");
  if (pid != 0) return pid;
  const int nowhere = ::open("/dev/null", O_RDWR);
  for (int stream = 0; stream <= 2; ++stream) static_cast<void>(::dup2(nowhere, stream));
  if (::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0) ::execv(path.c_str(), argv.data());
  ::_exit(127);
}

void waitUntil(const std::string& what, const std::function<bool()>& reached) {
  constexpr double kPatience = 20e9;  // nanoseconds
  const double end = nanoseconds() + kPatience;
  while (!reached()) {
    if (nanoseconds() > end) throw std::runtime_error("waited in vain for " + what);
    static_cast<void>(::sched_yield());
  }
}

void endChild(pid_t pid) {
  static_cast<void>(::kill(pid, SIGKILL));  // it may have ended already
  static_cast<void>(::waitpid(pid, nullptr, 0));
}

double processorTime(pid_t pid) {
  clockid_t clock = 0;
  const int error = ::clock_getcpuclockid(pid, &clock);
  if (error != 0) throw std::system_error(error, std::generic_category(), "clock_getcpuclockid()");
  timespec time{};
  check(::clock_gettime(clock, &time), "clock_gettime()");
  return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double ownMemory() {
  double size = 0;
  double resident = 0;
  double ofFiles = 0;
  std::ifstream("/proc/self/statm") >> size >> resident >> ofFiles;
  return (resident - ofFiles) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

void* sharedMemory(size_t size) {
  void* const memory =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) failed("mmap()");
  return memory;
}

// In a file system in memory where there is one, like the tables themselves.
ScratchDirectory::ScratchDirectory() {
  const std::filesystem::path memory = "/dev/shm";
  const bool writable = ::access(memory.c_str(), W_OK) == 0;
  path_ = ((writable ? memory : std::filesystem::temp_directory_path()) / "zorbe-bench-XXXXXX")
              .string();
  if (::mkdtemp(path_.data()) == nullptr) failed("mkdtemp()");
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace Bench
