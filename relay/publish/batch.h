// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "format/format.h"
#include "server/connection.h"

namespace Zorbe::Relay {

/// Changes on their way to the server: each key once, with its newest value.
class Batch {
 public:
  void put(std::string_view key, std::string_view value);
  void erase(std::string_view key);

  bool isEmpty() const { return changes_.empty(); }

  /// As many as one command should have: the server does nothing else meanwhile, and its scripts
  /// take no more than some 8,000 arguments.
  bool isFull() const { return changes_.size() >= kMostChanges || bytes_ >= kMostBytes; }

  size_t changes() const { return changes_.size(); }
  size_t bytes() const { return bytes_; }

  /// Adds the changes to a command, as the script wants them, and forgets them.
  void moveTo(Command& command, const Id& id);

 private:
  static constexpr size_t kMostChanges = 1000;
  static constexpr size_t kMostBytes = size_t{256} * 1024;

  struct Change {
    std::string key;
    std::string value;
    bool isErased;
  };

  Change& of(std::string_view key);

  std::vector<Change> changes_;
  std::unordered_map<std::string, size_t> places_;  // in changes_, by key
  size_t bytes_ = 0;
};

}  // namespace Zorbe::Relay
