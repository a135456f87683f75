// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/c_interface.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zorbe::Table {

/// How the last call with a handle ended. Has room of its own for the text, so that a failing
/// allocation can be reported, and is initialised without code.
///
/// Threads that fail at the same time do not wait for each other: one of them leaves its text.
class Failure {
 public:
  constexpr Failure() = default;
  constexpr Failure(int code, std::string_view text) : code_(code) {
    for (size_t i = 0; i < text.size(); ++i) text_[i] = text[i];
  }

  int code() const { return code_.load(std::memory_order_relaxed); }
  const char* text() const { return code() == 0 ? "" : text_; }
  uint32_t pid() const { return pid_; }         ///< of ZORBE_E_DUPLICATE
  const char* owner() const { return owner_; }  ///< as above

  /// The call has not failed.
  void clear() {
    if (code() != 0) code_.store(0, std::memory_order_relaxed);
  }

  /// Returns `code`.
  int set(int code, std::string_view text) noexcept;

  /// The exception that is being handled. Returns its code.
  int setCurrent() noexcept;

 private:
  int setDuplicate(std::string_view text, uint32_t pid, std::string_view owner) noexcept;

  static constexpr size_t kTextBytes = 4096;   // two short descriptions of tables
  static constexpr size_t kOwnerBytes = 4096;  // PATH_MAX

  std::atomic<int> code_{0};
  std::atomic<bool> isBeingSet_{false};
  uint32_t pid_ = 0;
  char text_[kTextBytes] = {};
  char owner_[kOwnerBytes] = {};
};

}  // namespace Zorbe::Table
