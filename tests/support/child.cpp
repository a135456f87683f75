// SPDX-License-Identifier: MIT
#include "support/child.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <vector>

namespace Zorbe::Test {
namespace {

constexpr int kCannot = 255;
constexpr uid_t kNobody = 65534;

bool becomeOrdinaryUser() {
  return geteuid() != 0 ||
         (setgroups(0, nullptr) == 0 && setresgid(kNobody, kNobody, kNobody) == 0 &&
          setresuid(kNobody, kNobody, kNobody) == 0);
}

}  // namespace

pid_t startChild(const std::function<int()>& body) {
  const pid_t pid = fork();
  EXPECT_GE(pid, 0);
  if (pid == 0) _exit(body());
  return pid;
}

pid_t startAsOrdinaryUser(const std::function<int()>& body) {
  return startChild([&body] { return becomeOrdinaryUser() ? body() : kCannot; });
}

int exitStatus(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno == EINTR) continue;
    ADD_FAILURE() << "cannot wait for " << pid;
    return -1;
  }
  EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void inParallel(int count, const std::function<void()>& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace Zorbe::Test
