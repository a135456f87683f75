// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <string>

namespace Zorbe::Test::Chaos {

/// Says whether there are two writers, without the library: a record lock, which a writer
/// takes after the table's and gives back before. There is no moment of a death at which it
/// could speak wrongly: the kernel takes the record locks of a dying process back while it
/// goes through its descriptors, and lets its sockets go after that.
class Witness {
 public:
  explicit Witness(const std::string& path);
  ~Witness();
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

  /// 0, or the process that has it.
  pid_t take();
  void giveBack();

 private:
  int fd_;
};

}  // namespace Zorbe::Test::Chaos
