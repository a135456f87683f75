// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Zorbe::Table {

/// An object that belongs to the parent when the process forks: in the child its descriptors
/// would keep the parent's lock and connections open.
class ForkMember {
 public:
  ForkMember(const ForkMember&) = delete;
  ForkMember& operator=(const ForkMember&) = delete;

  /// True in a child process of the one that made the object.
  bool isParents() const { return isParents_; }

  /// Throws Error (closed) in a child process.
  void check(const std::string& table) const {
    if (isParents_) fail(table);
  }

 protected:
  ForkMember() = default;
  virtual ~ForkMember() { leave(); }

  /// Called in the child, before fork(2) returns there.
  virtual void leaveToParent() noexcept = 0;

  /// To be called last in the constructor of the class that implements leaveToParent.
  void join();

  /// To be called first in its destructor. Harmless in a child.
  void leave();

 private:
  friend struct ForkRegistry;

  [[noreturn]] static void fail(const std::string& table);

  bool isParents_ = false;
  bool isListed_ = false;
  ForkMember* previous_ = nullptr;
  ForkMember* next_ = nullptr;
};

}  // namespace Zorbe::Table
