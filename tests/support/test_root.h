// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <sys/types.h>

#include <optional>
#include <string>

namespace Zorbe::Test {

/// A temporary directory of its own, which is $SHMEM_ROOT while this lives; NSPATH and
/// Q9_CHROOT are unset and the umask is 022. Afterwards the three variables, the working
/// directory and the umask are as they were, and the directory is removed with its content.
class TestRoot : private NonCopyable {
 public:
  TestRoot();
  ~TestRoot();

  const std::string& path() const { return path_; }

  /// The path of something inside the directory.
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  class Variable : private NonCopyable {
   public:
    explicit Variable(const char* name);
    ~Variable();

   private:
    const char* name_;
    std::optional<std::string> value_;
  };

  Variable shmemRoot_{"SHMEM_ROOT"};
  Variable nsPath_{"NSPATH"};
  Variable chroot_{"Q9_CHROOT"};
  std::string workingDirectory_;
  mode_t umask_;
  std::string path_;
};

}  // namespace Zorbe::Test
