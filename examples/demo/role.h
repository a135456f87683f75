// SPDX-License-Identifier: MIT
//
// Processes of the demo that are not programs of their own, and what they share.
#pragma once

#include <sys/types.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "quote.h"

namespace Demo {

constexpr unsigned kReaders = 4;

/// In memory that the processes of an act share.
struct Board {
  struct Reader {
    std::atomic<uint64_t> reads;     ///< records that it has read
    std::atomic<uint64_t> wrong;     ///< that were missing, or mixtures of two
    std::atomic<uint64_t> followed;  ///< different records that next() has delivered
  };
  std::array<Reader, kReaders> readers;
  std::atomic<uint64_t> written;  ///< so many records are in the table
  std::atomic<bool> isPutting;    ///< the writer is inside of put()
  std::atomic<bool> isOver;

  uint64_t sum(std::atomic<uint64_t> Reader::*counter) const;

  /// The least of all readers.
  uint64_t least(std::atomic<uint64_t> Reader::*counter) const;
};

/// All zero. Kept for as long as the process lives.
Board& makeBoard();

/// A function in a process of its own, which is killed at the latest when this object ends.
class Role {
 public:
  explicit Role(const std::function<void()>& act);
  Role(const Role&) = delete;
  Role& operator=(const Role&) = delete;
  ~Role();

  /// SIGSTOP; returns when it has stopped. Throws std::runtime_error when it has ended instead.
  void stop() const;
  void resume() const;

  bool isRunning() const;

 private:
  pid_t pid_;
};

/// Looks at the condition again and again, for so many seconds at most. Returns whether it held.
bool await(double seconds, const std::function<bool()>& condition);

/// The records of an act: price and size of a whole one belong together.
std::string symbolOf(uint64_t number);
Quotes::Quote quoteOf(uint64_t number);
bool isWhole(const Quotes::Quote& quote);

/// Repeatable random numbers.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint64_t below(uint64_t limit);

 private:
  uint64_t state_;
};

}  // namespace Demo
