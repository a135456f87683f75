// SPDX-License-Identifier: MIT
//
// A file system: directories, small files, links that lead nowhere, and what inotify(7) reports
// of them. Paths are absolute. Functions return 0 or an errno.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/kernel/inotify.h"

namespace Zorbe::Test::Kernel {

class Files {
 public:
  enum class Links { kFollowed, kNotFollowed };

  Files() { makeDirectories("/"); }

  /// A file that is mapped rather than read: it outlives its removal as long as it is mapped.
  using Mapping = std::shared_ptr<void>;

  static std::vector<std::string> components(const std::string& path);

  /// What stat(2) or lstat(2) makes of any path: an errno, or 0 and the mode of what is there.
  int examine(const std::string& path, Links links, mode_t& mode) const;
  int makeDirectory(const std::string& path, mode_t mode);  ///< mkdir(2), without a umask
  int changeMode(const std::string& path, mode_t mode);     ///< chmod(2)

  // The following take paths without ".", ".." and double slashes.
  bool exists(const std::string& path) const { return nodes_.count(path) != 0; }
  bool isDirectory(const std::string& path) const;
  uint64_t inode(const std::string& path) const;  ///< 0: there is none
  void makeDirectories(const std::string& path, mode_t mode = 0755);
  void makeLink(const std::string& path);  ///< one that leads nowhere
  int create(const std::string& path);     ///< or truncate
  void close(const std::string& path, uint64_t file, const std::string& content);
  int read(const std::string& path, std::string& content) const;
  int remove(const std::string& path);      ///< a file or an empty directory
  int removeTree(const std::string& path);  ///< all of it at once
  void unmount(const std::string& path);    ///< a tree, whose watches end
  void replace(const std::string& path);    ///< a directory is moved away, an empty one made
  int place(const std::string& path, Mapping mapping);
  int link(const std::string& path);  ///< a file that had no name gets this one
  int rename(const std::string& from, const std::string& to);  ///< a file, in one directory
  Mapping map(const std::string& path) const;

  /// The removal of a directory is reported to its parent before it is to itself. Kernels differ.
  bool reportsParentFirst = false;

  /// The mode of each path.
  std::map<std::string, mode_t> modes() const;

  /// From now on these watches receive the events, until they are detached.
  void attach(Inotify* watches) { watchers_.push_back(watches); }
  void detach(Inotify* watches);

 private:
  struct Node {
    uint64_t inode = 0;
    mode_t mode = 0;
    std::string content;
    Mapping mapping;
  };

  const Node* find(const std::string& path) const;
  Node& make(const std::string& path, mode_t mode);
  void erase(const std::string& path);
  std::vector<std::string> treeOf(const std::string& path) const;
  void report(const std::string& directory, uint32_t event, const std::string& name);

  std::map<std::string, Node> nodes_;
  std::vector<Inotify*> watchers_;
  uint64_t lastInode_ = 0;
};

}  // namespace Zorbe::Test::Kernel
