// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <sys/types.h>

#include <string>

namespace Zorbe::Test::Chaos {

/// Finds out whether there are two writers, without the library: a record lock, which a writer
/// acquires after the table's lock and releases before it. It is correct when a writer is
/// killed, too: the kernel releases the record locks of a process while it closes its
/// descriptors, and its sockets after that.
class MutualExclusionOracle : private NonCopyable {
 public:
  explicit MutualExclusionOracle(const std::string& path);
  ~MutualExclusionOracle();

  /// 0, or the process that has it.
  pid_t take();
  void release();

 private:
  int fd_;
};

}  // namespace Zorbe::Test::Chaos
