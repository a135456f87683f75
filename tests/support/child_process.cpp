// SPDX-License-Identifier: MIT
#include "support/child_process.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <stdexcept>
#include <system_error>

#ifdef ZORBE_COVERAGE
extern "C" {
#include <gcov.h>  // declares nothing for C++
}
#endif

namespace Zorbe::Test {
namespace {

constexpr uid_t kNobody = 65534;
constexpr off_t kLongestLog = 8192;

int require(int result, const char* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

Descriptor openLog() {
  return Descriptor(require(::memfd_create("log of a child", MFD_CLOEXEC), "memfd_create"));
}

void becomeOrdinaryUser() {
  if (::geteuid() != 0) return;
  require(::setgroups(0, nullptr), "setgroups");
  require(::setresgid(kNobody, kNobody, kNobody), "setresgid");
  require(::setresuid(kNobody, kNobody, kNobody), "setresuid");
}

// What a child inherits beyond would keep the channels of its siblings open.
void closeAllBut(std::vector<int> kept) {
  kept.insert(kept.end(), {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO});
  std::sort(kept.begin(), kept.end());
  unsigned next = 0;
  for (const int fd : kept) {
    const auto number = static_cast<unsigned>(fd);
    if (number > next) require(::close_range(next, number - 1, 0), "close_range");
    next = number + 1;
  }
  require(::close_range(next, ~0U, 0), "close_range");
}

void flushAll() {
  std::cout.flush();
  std::fflush(nullptr);
}

}  // namespace

struct ChildProcess::Ends {
  Descriptor parents;
  Descriptor childs;

  static Ends open() {
    int pair[2];
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), "socketpair");
    return {Descriptor(pair[0]), Descriptor(pair[1])};
  }
};

ChildProcess::ChildProcess(std::string name, const Role& role, User user,
                           const std::vector<int>& kept)
    : name_(std::move(name)), log_(openLog()), channel_(Descriptor(), name_) {
  Ends ends = Ends::open();
  flushAll();
  pid_ = require(::fork(), "fork");
  if (pid_ == 0) exitChild(run(role, user, ends.childs.get(), kept));
  channel_ = Channel(std::move(ends.parents), name_);
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::string& input)
    : name_(arguments.at(0)), log_(openLog()), channel_(Descriptor(), name_) {
  Ends ends = Ends::open();
  flushAll();
  pid_ = require(::fork(), "fork");
  if (pid_ == 0) execute(arguments, input, ends.childs.get());
  channel_ = Channel(std::move(ends.parents), name_);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : name_(std::move(other.name_)),
      log_(std::move(other.log_)),
      channel_(std::move(other.channel_)),
      pid_(std::exchange(other.pid_, -1)) {}

int ChildProcess::run(const Role& role, User user, int fd, const std::vector<int>& kept) const {
  int status = EXIT_FAILURE;
  try {
    require(::dup2(log_.get(), STDOUT_FILENO), "dup2");
    require(::dup2(log_.get(), STDERR_FILENO), "dup2");
    std::vector<int> all = kept;
    all.push_back(fd);
    closeAllBut(all);
    if (user == User::kOrdinary) becomeOrdinaryUser();
    require(::prctl(PR_SET_PDEATHSIG, SIGKILL), "prctl");
    Channel parent(Descriptor(fd), "the test");
    role(parent);
    if (!testing::Test::HasFailure()) status = EXIT_SUCCESS;
  } catch (const std::exception& exception) {
    std::cerr << "ends with an exception: " << exception.what() << std::endl;
  }
  flushAll();
  return status;
}

void ChildProcess::execute(const std::vector<std::string>& arguments, const std::string& input,
                           int output) const {
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const int fd = ::open(input.c_str(), O_RDONLY);
  if (::dup2(log_.get(), STDERR_FILENO) >= 0 && ::dup2(fd, STDIN_FILENO) >= 0 &&
      ::dup2(output, STDOUT_FILENO) >= 0 && ::close_range(STDERR_FILENO + 1, ~0U, 0) == 0 &&
      ::prctl(PR_SET_PDEATHSIG, SIGKILL) == 0) {
    ::execv(argv[0], argv.data());
  }
  std::perror(argv[0]);
  ::_exit(EXIT_FAILURE);
}

ChildProcess::~ChildProcess() {
  if (pid_ > 0) kill();
  if (log_.isOpen() && testing::Test::HasFailure())
    std::cout << "---- log of " << name_ << ":\n" << log() << "----\n";
}

void ChildProcess::signal(int number) const {
  EXPECT_EQ(::kill(pid_, number), 0) << name_ << ": " << std::strerror(errno);
}

void ChildProcess::stop() const {
  signal(SIGSTOP);
  int status = 0;
  EXPECT_EQ(::waitpid(pid_, &status, WUNTRACED), pid_) << name_;
  EXPECT_TRUE(WIFSTOPPED(status)) << name_;
}

void ChildProcess::kill() {
  signal(SIGKILL);
  reap();
}

int ChildProcess::finish(std::chrono::milliseconds limit) {
  channel_.receiveAll(limit);
  return reap();
}

int ChildProcess::reap() {
  int status = 0;
  pid_t reaped;
  do {
    reaped = ::waitpid(pid_, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  EXPECT_EQ(reaped, pid_) << name_;
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

double ChildProcess::cpuSeconds() const {
  clockid_t clock;
  timespec used = {};
  EXPECT_EQ(::clock_getcpuclockid(pid_, &clock), 0) << name_;
  EXPECT_EQ(::clock_gettime(clock, &used), 0) << name_;
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
}

std::string ChildProcess::log() const {
  const Fault::Bypass bypass;
  const off_t size = ::lseek(log_.get(), 0, SEEK_END);
  std::string text(static_cast<size_t>(std::clamp<off_t>(size, 0, kLongestLog)), '\0');
  const off_t start = size - static_cast<off_t>(text.size());
  const ssize_t length = ::pread(log_.get(), text.data(), text.size(), start);
  text.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
  return text;
}

void exitChild(int status) {
#ifdef ZORBE_COVERAGE
  __gcov_dump();
#endif
  ::_exit(status);
}

int inChild(const std::function<int()>& body) {
  const pid_t child = ::fork();
  if (child == 0) exitChild(body());
  int status = 0;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string resultInChild(const std::function<std::string()>& body, User user) {
  ChildProcess child(
      "child", [&body](Channel& parent) { parent.send(body()); }, user);
  std::string text = child.channel().receiveAll();
  EXPECT_EQ(child.finish(), 0);
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace Zorbe::Test
