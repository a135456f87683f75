// SPDX-License-Identifier: MIT
#pragma once

#include <brask/linux/event_loop.h>
#include <stdlib.h>
#include <zorbe/root_path.h>

#include <memory>
#include <vector>

#include "harness/processes.h"
#include "harness/roles.h"

namespace Bench {

/// A writer and its readers on one loop: deterministic, so that instructions and allocations can
/// be counted. All readers sleep.
class OneProcess {
 public:
  explicit OneProcess(size_t readers) {
    check(::setenv("SHMEM_ROOT", directory_.path().c_str(), 1), "setenv()");
    const Zorbe::RootPath root(handler_, "bench", true);
    writer_ = std::make_unique<Writer>(handler_, root, published_);
    writer_->open();
    for (size_t each = 0; each < readers; ++each) {
      readers_.push_back(std::make_unique<Reader>(handler_, root, published_));
      readers_.back()->doConnect();
      settle();
    }
  }

  void round() {
    wake();
    settle();
  }

  /// Publishes, which kicks every reader; none has run yet.
  void wake() { writer_->publish(); }

  /// Until every reader has reported and sleeps.

  void settle() {
    while (writer_->sleeping() < readers_.size()) loop_.turn(-1);
  }

 private:
  ScratchDirectory directory_;
  SilentHandler handler_;
  Published published_{0};
  Brask::Linux::EventLoop loop_;
  std::unique_ptr<Writer> writer_;
  std::vector<std::unique_ptr<Reader>> readers_;
};

}  // namespace Bench
