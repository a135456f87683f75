// SPDX-License-Identifier: MIT
#include "brask/linux/loop_member.h"

#include "brask/linux/loop.h"

namespace Brask::Linux {

LoopMember::LoopMember(Loop& loop) : loop_(&loop) {
  loop.members().add(*this);
}

LoopMember::~LoopMember() {
  if (loop_ != nullptr) loop_->members().remove(*this);
}

void LoopMembers::add(LoopMember& member) {
  member.next_ = first_;
  if (first_ != nullptr) first_->previous_ = &member;
  first_ = &member;
}

void LoopMembers::remove(LoopMember& member) {
  (member.previous_ != nullptr ? member.previous_->next_ : first_) = member.next_;
  if (member.next_ != nullptr) member.next_->previous_ = member.previous_;
}

void LoopMembers::detachAll() {
  for (; first_ != nullptr; first_ = first_->next_) first_->loop_ = nullptr;
}

}  // namespace Brask::Linux
