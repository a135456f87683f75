// SPDX-License-Identifier: MIT
#pragma once

#include "support/noncopyable.h"

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <csignal>
#include <functional>

namespace Zorbe::Test {

/// A page whose first store runs a function, before it is made.
class InterruptedPage : private NonCopyable {
 public:
  /// A page of its own.
  explicit InterruptedPage(std::function<void()> action)
      : InterruptedPage(::mmap(nullptr, size(), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0),
                        std::move(action)) {
    EXPECT_NE(page_, MAP_FAILED);
    isOwn_ = true;
  }

  /// This page, which may be read and written otherwise.
  InterruptedPage(void* page, std::function<void()> action)
      : page_(page), action_(std::move(action)) {
    EXPECT_EQ(::mprotect(page_, size(), PROT_READ), 0);
    current_ = this;
    struct sigaction handler {};
    handler.sa_handler = [](int) { current_->interrupt(); };
    EXPECT_EQ(::sigaction(SIGSEGV, &handler, &before_), 0);
  }
  ~InterruptedPage() {
    EXPECT_EQ(::sigaction(SIGSEGV, &before_, nullptr), 0);
    if (isOwn_) {
      EXPECT_EQ(::munmap(page_, size()), 0);
    }
  }

  static size_t size() { return static_cast<size_t>(::sysconf(_SC_PAGESIZE)); }

  void* memory() const { return page_; }
  int interrupts() const { return interrupts_; }

 private:
  void interrupt() {
    if (interrupts_++ > 0) ::_exit(1);  // another fault than the expected one
    if (::mprotect(page_, size(), PROT_READ | PROT_WRITE) != 0) ::_exit(1);
    action_();
  }

  static inline InterruptedPage* current_ = nullptr;

  void* page_;
  bool isOwn_ = false;
  std::function<void()> action_;
  struct sigaction before_ {};
  int interrupts_ = 0;
};

}  // namespace Zorbe::Test
