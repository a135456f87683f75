// SPDX-License-Identifier: MIT
#include "child.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "clock.h"

extern char** environ;

namespace Demo {

namespace {

[[noreturn]] void fail(const char* call, int error) {
  throw std::system_error(error, std::generic_category(), call);
}

double secondsNow() {
  return static_cast<double>(monotonicNanoseconds()) / 1e9;
}

bool readableUntil(int fd, double untilSeconds) {
  for (;;) {
    const double left = std::max(0.0, untilSeconds - secondsNow());
    struct pollfd wanted {
      fd, POLLIN, 0
    };
    const int ready = ::poll(&wanted, 1, static_cast<int>(left * 1e3) + 1);
    if (ready > 0) return true;
    if (ready < 0 && errno != EINTR) fail("poll()", errno);
    if (secondsNow() >= untilSeconds) return false;
  }
}

pid_t spawn(const std::vector<std::string>& arguments, const std::string& input, int output,
            int errors) {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  if (::posix_spawn_file_actions_init(&actions) != 0)
    fail("posix_spawn_file_actions_init()", ENOMEM);
  int error = ::posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, output, 1);
  if (error == 0) error = ::posix_spawn_file_actions_adddup2(&actions, errors, 2);
  pid_t pid = -1;
  if (error == 0) error = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  static_cast<void>(::posix_spawn_file_actions_destroy(&actions));
  if (error != 0) fail(arguments[0].c_str(), error);
  return pid;
}

}  // namespace

// Delegating: from there on the destructor is called even when this fails. Its messages go
// to a file without a name, so that nobody has to read them while it runs.
Child::Child(const std::vector<std::string>& arguments, const std::string& input) : Child() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) fail("pipe2()", errno);
  output_ = Descriptor(ends[0]);
  const Descriptor writingEnd(ends[1]);
  errors_ = Descriptor(::memfd_create("errors", MFD_CLOEXEC));
  if (errors_.get() < 0) fail("memfd_create()", errno);
  pid_ = spawn(arguments, input, writingEnd.get(), errors_.get());
  end_ = Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));  // is close-on-exec
  if (end_.get() < 0) fail("pidfd_open()", errno);
}

Child::Child(Child&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)),
      end_(std::move(other.end_)),
      output_(std::move(other.output_)),
      errors_(std::move(other.errors_)),
      pending_(std::move(other.pending_)) {}

Child& Child::operator=(Child&& other) noexcept {
  std::swap(pid_, other.pid_);
  std::swap(end_, other.end_);
  std::swap(output_, other.output_);
  std::swap(errors_, other.errors_);
  std::swap(pending_, other.pending_);
  return *this;
}

Child::~Child() {
  if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) static_cast<void>(::waitpid(pid_, nullptr, 0));
}

/// False at the end of the output, and when the time is over.
bool Child::readOutput(double untilSeconds) {
  if (!readableUntil(output_.get(), untilSeconds)) return false;
  char buffer[4096];
  const ssize_t got = ::read(output_.get(), buffer, sizeof(buffer));
  if (got < 0 && errno != EINTR) fail("read()", errno);
  if (got > 0) pending_.append(buffer, static_cast<size_t>(got));
  return got != 0;
}

std::string Child::awaitLine(const std::string& prefix, double seconds) {
  const double until = secondsNow() + seconds;
  for (;;) {
    const size_t end = pending_.find('\n');
    if (end == pending_.npos) {
      if (readOutput(until)) continue;
      throw std::runtime_error("process " + std::to_string(pid_) + " did not print '" + prefix +
                               "'; it printed: " + errors());
    }
    std::string line = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    if (line.compare(0, prefix.size(), prefix) == 0) return line;
  }
}

void Child::signal(int number) {
  if (pid_ > 0 && ::kill(pid_, number) != 0) fail("kill()", errno);
}

bool Child::endsWithin(double seconds) {
  return readableUntil(end_.get(), secondsNow() + seconds);
}

int Child::awaitEnd(double seconds) {
  if (!endsWithin(seconds)) {
    throw std::runtime_error("process " + std::to_string(pid_) + " did not end");
  }
  int status = 0;
  if (::waitpid(pid_, &status, 0) != pid_) fail("waitpid()", errno);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string Child::errors() {
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = ::pread(errors_.get(), buffer, sizeof(buffer),
                                   static_cast<off_t>(text.size()))) > 0;) {
    text.append(buffer, static_cast<size_t>(got));
  }
  return text;
}

std::string field(const std::string& line, const std::string& key) {
  const size_t begin = (" " + line).find(" " + key + "=");
  if (begin == line.npos) throw std::runtime_error("no " + key + " in: " + line);
  const size_t value = begin + key.size() + 1;
  return line.substr(value, line.find(' ', value) - value);
}

std::string sibling(const std::string& name) {
  char path[4096];
  const ssize_t length = ::readlink("/proc/self/exe", path, sizeof(path));
  if (length < 0) fail("readlink()", errno);
  const std::string self(path, static_cast<size_t>(length));
  return self.substr(0, self.rfind('/') + 1) + name;
}

}  // namespace Demo
