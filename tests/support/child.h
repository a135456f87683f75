// SPDX-License-Identifier: MIT
//
// Children that are copies of the test, and threads: what a test does when it has to be
// somebody, or somewhere, else. A child exits with what its body returns.
#pragma once

#include <sys/types.h>

#include <functional>

namespace Zorbe::Test {

/// Returns the child's pid, which the caller waits for.
pid_t startChild(const std::function<int()>& body);

/// The same for a user that is not root: "nobody" when the test is run by root. The exit
/// status is 255 when it could not become so.
pid_t startAsOrdinaryUser(const std::function<int()>& body);

/// Waits; fails the test, and returns -1, when the child did not exit by itself.
int exitStatus(pid_t pid);

/// Runs the body in `count` threads at once and joins them.
void inParallel(int count, const std::function<void()>& body);

}  // namespace Zorbe::Test
