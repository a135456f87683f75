// SPDX-License-Identifier: MIT
#include "threaded/lock_wait.h"

#include <poll.h>
#include <zorbe/exceptions.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "core/root.h"
#include "core/writer_link.h"
#include "foundation/unique_fd.h"

namespace Zorbe::Table {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Between two attempts at a writer that refuses connections: it is starting or ending. The search
// for the holder of a lock examines all processes.
constexpr milliseconds kRetry{100};

// Until the writer ends, or has ended the connection for another reason.
void waitForEnd(int fd, Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now()).count();
  pollfd waiting{fd, POLLIN, 0};
  static_cast<void>(::poll(&waiting, 1, static_cast<int>(std::clamp<int64_t>(left, 0, 60'000))));
}

void waitForWriter(const RootPath& root, MutableHandler& log, Clock::time_point deadline) {
  const UniqueFd link(connectToWriter(log, root));
  if (link.get() >= 0) {
    waitForEnd(link.get(), deadline);
  } else {
    std::this_thread::sleep_until(std::min(deadline, Clock::now() + kRetry));
  }
}

}  // namespace

std::unique_ptr<WriterCore> becomeWriter(const std::string& name, const Options& options,
                                         const Schema& schema, MutableHandler& log) {
  constexpr double kLongest = 1e9;  // seconds
  const std::chrono::duration<double> wait(std::clamp(options.waitForLock, 0.0, kLongest));
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(wait);
  const RootPath root = resolveRoot(name, options);
  while (Clock::now() < deadline) {
    log.mute(true);
    try {
      auto writer = std::make_unique<WriterCore>(name, options, schema);
      log.mute(false);
      return writer;
    } catch (const DuplicateWriterException&) {
      waitForWriter(root, log, deadline);
    } catch (...) {
      log.mute(false);
      throw;
    }
  }
  log.mute(false);
  return std::make_unique<WriterCore>(name, options, schema);
}

}  // namespace Zorbe::Table
