// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// The descriptors that this process has open, each with what it refers to.
class Census {
 public:
  static Census take();

  /// The descriptors that `later` has and this one has not, or has for something else.
  std::vector<int> openedBy(const Census& later) const;

  /// What came (+) and what went (-), a line each; empty when nothing did.
  std::string difference(const Census& later) const;

 private:
  std::string linesOnlyHere(const Census& other, char sign) const;

  std::map<int, std::string> open_;
};

}  // namespace Zorbe::Test
