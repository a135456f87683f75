// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <sys/types.h>

#include <memory>
#include <string>

namespace Zorbe::Table {

/// Watches the directory of a table, or its nearest ancestor that exists. Creates nothing.
class RootWatch : public Brask::Platform::InotifyHandler {
 public:
  class Owner {
   public:
    virtual ~Owner() = default;

    /// The table's files, or a directory of their path, may have changed.
    virtual void rootChanged() = 0;
  };

  /// `path` is absolute.
  RootWatch(const std::string& path, Owner& owner);

  /// Watches the nearest existing directory. To be called again after each rootChanged().
  void set();

  /// Whether changes are reported; otherwise the owner has to poll.
  bool isWatching() const { return watching_; }

  void inotifyError(const std::string& what) override;
  void inotifyDeleted() override;
  void inotifyChanged(const std::string& what) override;

 private:
  /// Of a directory; another one at the same path has another.
  struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const Identity& other) const {
      return device == other.device && inode == other.inode;
    }
  };

  std::string nearest(Identity& identity) const;
  static bool isDirectory(const std::string& path, Identity& identity);
  bool concerns(const std::string& name) const;

  std::string path_;
  Owner& owner_;
  std::unique_ptr<Brask::Platform::InotifyControl> control_;
  std::string watched_;
  Identity identity_;  // of what is watched
  std::string next_;   // the component below the watched one, empty for the table's directory
  bool watching_ = false;
};

}  // namespace Zorbe::Table
