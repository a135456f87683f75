// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace Brask::Linux {

class Loop;
class LoopMembers;

/// A control as part of its loop. Detached when the loop is destroyed first.
class LoopMember {
 public:
  LoopMember(const LoopMember&) = delete;
  LoopMember& operator=(const LoopMember&) = delete;

 protected:
  explicit LoopMember(Loop& loop);
  ~LoopMember();

  bool hasLoop() const { return loop_ != nullptr; }

  /// Throws std::logic_error when the loop was destroyed.
  Loop& loop() const {
    if (loop_ == nullptr) throw std::logic_error("the event loop of this control is gone");
    return *loop_;
  }

 private:
  friend class LoopMembers;

  Loop* loop_;
  LoopMember* previous_ = nullptr;
  LoopMember* next_ = nullptr;
};

/// All controls of one loop.
class LoopMembers {
 public:
  void add(LoopMember& member);
  void remove(LoopMember& member);
  void detachAll();

 private:
  LoopMember* first_ = nullptr;
};

}  // namespace Brask::Linux
