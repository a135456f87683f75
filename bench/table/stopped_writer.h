// SPDX-License-Identifier: MIT
//
// A writer in another process that is stopped at a chosen place.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Bench {

enum class WriterState {
  kIdle,     // stopped between two writes
  kBusy,     // writes without rest
  kStopped,  // stopped in the middle of a write, for kStopMilliseconds
};

std::string nameOf(WriterState state);

/// Stores one record again and again, in a process of its own; this process reads it.
class StoppableWriter {
 public:
  StoppableWriter(const StoppableWriter&) = delete;
  StoppableWriter& operator=(const StoppableWriter&) = delete;
  virtual ~StoppableWriter() = default;

  virtual std::string name() const = 0;

  /// The time of the slowest read, for `duration` nanoseconds; but of those during which the
  /// reader had its CPU, or waited for the writer.
  double slowestRead(WriterState state, double duration);

 protected:
  StoppableWriter() = default;

  virtual pid_t pid() const = 0;

  /// While the writer is stopped: whether it is in the middle of a write.
  virtual bool isWriting() = 0;

  /// Changes with each write.
  virtual uint64_t progress() = 0;
  virtual void read() = 0;

 private:
  void stop(bool writing);
};

/// The table's first, then those of others that the build has found.
std::vector<std::unique_ptr<StoppableWriter>> makeStoppableWriters(const std::string& directory);

}  // namespace Bench
