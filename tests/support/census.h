// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// The descriptors that a process has open, each with what it refers to.
class Census {
 public:
  /// Of this process, or of another one.
  static Census take(const std::string& process = "self");

  std::size_t count() const { return open_.size(); }

  /// How many of them refer to `target`, as "anon_inode:inotify".
  std::size_t count(const std::string& target) const;

  /// The descriptors that `later` has and this one has not, or has for something else.
  std::vector<int> openedBy(const Census& later) const;

  /// The descriptors that were opened (+) and closed (-) since, a line each.
  std::string difference(const Census& later) const;

 private:
  std::string linesOnlyHere(const Census& other, char sign) const;

  std::map<int, std::string> open_;
};

}  // namespace Zorbe::Test
