// SPDX-License-Identifier: MIT
//
// What a command that runs for long needs: the signals that end it, and output that neither a
// reader who is slow nor one who has closed it keeps from ending.
#pragma once

#include <signal.h>

#include <string_view>

#include "foundation/unique_fd.h"

namespace Zorbe::Tool {

/// Gives closed standard descriptors to files that can be neither read nor written as wanted,
/// before a file of a table gets their number: a message on standard error would be stored in it.
/// Throws std::system_error.
void occupyStandardDescriptors();

/// Takes SIGINT and SIGTERM from the process for as long as it lives: instead of ending it they
/// make a descriptor readable.
class StopSignals {
 public:
  /// Throws std::system_error.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  int fd() const { return fd_.get(); }

 private:
  sigset_t before_{};
  UniqueFd fd_;
};

/// Standard output of a command that follows something. Its end is noticed also while nothing is
/// written.
class Outlet {
 public:
  explicit Outlet(const StopSignals& stop);

  /// Writes all of it. False when a signal came meanwhile, or nobody reads any more. Throws
  /// std::system_error when writing fails.
  bool write(std::string_view text);

  /// Waits until `fd` is readable (-1: none), for at most `milliseconds` (-1: for ever). False as
  /// above.
  bool wait(int fd, int milliseconds);

 private:
  const StopSignals& stop_;
};

}  // namespace Zorbe::Tool
