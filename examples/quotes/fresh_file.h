// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

#include <string>

#include "mapping.h"

namespace Quotes {

/// A file that replaces another one of the table's directory only when it is complete: until
/// then it has a name of its own, and the other one stays as it is.
class FreshFile {
 public:
  /// Makes the file under its first name; what an earlier process left under it is removed.
  /// Throws Brask::RuntimeException, a full disk included, and leaves nothing then.
  FreshFile(const Zorbe::RootPath& root, const char* firstName, const char* lastName, size_t bytes);

  FreshFile(const FreshFile&) = delete;
  FreshFile& operator=(const FreshFile&) = delete;

  /// Removes a file that was not put in place.
  ~FreshFile();

  /// Gives it its last name. Throws Brask::RuntimeException.
  void putInPlace();

  /// True when its last name still names it.
  bool isInPlace() const { return mapping_.isFile(lastPath_); }

  template <class T>
  T* at(size_t offset) const {
    return mapping_.at<T>(offset);
  }

 private:
  std::string firstPath_;
  std::string lastPath_;
  bool placed_ = false;
  Mapping mapping_;
};

}  // namespace Quotes
