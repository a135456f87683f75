// SPDX-License-Identifier: MIT
#include "threaded/fork_member.h"

#include <pthread.h>
#include <zorbe/table/error.h>

#include <mutex>
#include <new>
#include <utility>

namespace Zorbe::Table {

/// All members. Locked while the process forks, so that the child finds the list whole.
struct ForkRegistry {
  static ForkRegistry& get() {
    static auto& registry = *new ForkRegistry;  // outlives every static table
    return registry;
  }

  ForkRegistry() {
    const int error = ::pthread_atfork([] { get().mutex.lock(); }, [] { get().mutex.unlock(); },
                                       [] { get().leaveAll(); });
    if (error != 0) throw std::bad_alloc();  // it needs nothing else
  }

  void add(ForkMember& member) {
    const std::lock_guard<std::mutex> lock(mutex);
    member.next_ = first;
    if (first != nullptr) first->previous_ = &member;
    first = &member;
    member.isListed_ = true;
  }

  void remove(ForkMember& member) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (member.isParents_ || !std::exchange(member.isListed_, false)) return;
    (member.previous_ != nullptr ? member.previous_->next_ : first) = member.next_;
    if (member.next_ != nullptr) member.next_->previous_ = member.previous_;
  }

  void leaveAll() {
    for (; first != nullptr; first = first->next_) {
      first->isParents_ = true;
      first->leaveToParent();
    }
    mutex.unlock();
  }

  std::mutex mutex;
  ForkMember* first = nullptr;
};

void ForkMember::join() {
  ForkRegistry::get().add(*this);
}

void ForkMember::leave() {
  ForkRegistry::get().remove(*this);
}

void ForkMember::fail(const std::string& table) {
  throw Error(ErrorCode::closed, table, "",
              "the object belongs to the parent process; make one after fork()");
}

}  // namespace Zorbe::Table
