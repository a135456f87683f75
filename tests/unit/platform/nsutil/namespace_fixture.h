// SPDX-License-Identifier: MIT
#pragma once

#include "support/fixture.h"

#include <fcntl.h>
#include <nsutil/nsutil.h>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Zorbe::Test {

/// Real network namespaces, deleted afterwards. Threads enter them, so that the test's
/// own thread stays where it is.
class NamespaceTest : public ZorbeTest {
 protected:
  using Id = std::pair<dev_t, ino_t>;

  struct Attempt {
    int result;
    int error;
    std::string trace;
    Id before;
    Id after;
  };

  ~NamespaceTest() override {
    for (const std::string& name : names_) EXPECT_EQ(ip("netns del " + name), 0);
  }

  static bool isRoot() { return geteuid() == 0; }

  static int ip(const std::string& arguments) { return std::system(("ip " + arguments).c_str()); }

  /// Throws what ends the test when there is none to be had.
  std::string makeNamespace() {
    static int made = 0;
    const std::string name = "zorbe-" + std::to_string(getpid()) + "-" + std::to_string(++made);
    if (ip("netns add " + name) != 0) throw std::runtime_error("ip netns add " + name);
    names_.push_back(name);
    return name;
  }

  static Id idOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return {status.st_dev, status.st_ino};
  }

  static Id namespaceOfThread() { return idOf("/proc/thread-self/ns/net"); }

  static Attempt enter(const char* name, int nstype) {
    const Id before = namespaceOfThread();
    errno = 0;
    const int result = setnsByName(name, nstype);
    const int error = errno;
    return {result, error, netnsGetTracebuffer(), before, namespaceOfThread()};
  }

  static void inThread(const std::function<void()>& body) { std::thread(body).join(); }

  static Attempt enterInThread(const char* name, int nstype = CLONE_NEWNET) {
    Attempt attempt{};
    inThread([&] { attempt = enter(name, nstype); });
    return attempt;
  }

  static void expectRefused(const char* name, int error, const std::string& trace) {
    const Attempt attempt = enterInThread(name);
    EXPECT_EQ(attempt.result, -1);
    EXPECT_EQ(attempt.error, error);
    EXPECT_EQ(attempt.trace, trace);
    EXPECT_EQ(attempt.after, attempt.before);
  }

 private:
  std::vector<std::string> names_;
};

}  // namespace Zorbe::Test
