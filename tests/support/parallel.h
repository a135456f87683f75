// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <thread>
#include <vector>

namespace Zorbe::Test {

/// Runs `body` in `count` threads at once and joins them.
inline void inParallel(int count, const std::function<void()>& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace Zorbe::Test
