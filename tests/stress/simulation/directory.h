// SPDX-License-Identifier: MIT
//
// The file system of a simulated world: directories, small files, and what inotify(7) tells
// about them. Paths are absolute. Functions return 0 or an errno.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace Zorbe::Test::Simulation {

/// What a process will be told about a path that it watches.
struct Notice {
  enum class Kind { changed, deleted, error };
  Kind kind;
  std::string what;
  uint32_t event = 0;  ///< of inotify(7)

  bool operator==(const Notice& other) const {
    return kind == other.kind && what == other.what && event == other.event;
  }
};

/// One process's watch of one path. The directory is the one that was there then.
struct Watch {
  std::string path;
  uint32_t mask = 0;
  uint64_t directory = 0;  ///< 0: watches nothing
  std::deque<Notice> notices;
};

class Directory {
 public:
  Directory() { makeDirectories("/"); }

  /// A file that is mapped rather than read: whoever maps it keeps it beyond its removal.
  using Mapping = std::shared_ptr<void>;

  bool exists(const std::string& path) const { return nodes_.count(path) != 0; }
  bool isDirectory(const std::string& path) const;
  void makeDirectories(const std::string& path);
  int create(const std::string& path);  ///< or truncate
  void close(const std::string& path, uint64_t file, const std::string& content);
  int read(const std::string& path, std::string& content) const;
  int remove(const std::string& path);      ///< a file or an empty directory
  int removeTree(const std::string& path);  ///< all of it at once
  int place(const std::string& path, Mapping mapping);
  Mapping map(const std::string& path) const;
  uint64_t inode(const std::string& path) const;  ///< 0: there is none

  void watch(Watch& watch, const std::string& path, uint32_t mask);
  void unwatch(Watch& watch);

 private:
  struct Node {
    uint64_t inode = 0;
    bool directory = false;
    std::string content;
    Mapping mapping;
  };

  Node* find(const std::string& path);
  void erase(const std::string& path);
  void tell(const std::string& directory, uint32_t event, const std::string& name);
  void push(Watch& watch, Notice notice);

  std::map<std::string, Node> nodes_;
  std::vector<Watch*> watches_;
  uint64_t lastInode_ = 0;
};

}  // namespace Zorbe::Test::Simulation
