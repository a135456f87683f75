// SPDX-License-Identifier: MIT
//
// A table whose changes go over a server to mirrors: the writer in this process, publisher and
// mirrors in processes of their own.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/table/in_loop.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "relay/hosts.h"

namespace Bench {

/// Nanoseconds of processor time.
struct RelayTime {
  double server = 0;
  double publisher = 0;
  double mirror = 0;  // the first of them
};

RelayTime operator-(const RelayTime& left, const RelayTime& right);

class Chain {
 public:
  /// Fills the table. No other processes may be forked afterwards: this thread has a loop.
  Chain(const Hosts& hosts, uint64_t records, size_t mirrors);

  /// Lets the publisher begin; returns when the server has every record.
  void publishAll();

  /// Lets the mirrors begin; returns when they have every record.
  void mirrorAll();

  /// Puts changes to the records in turn, and publishes them.
  void put(uint64_t changes);

  /// Puts so many changes as fast as they arrive, and never so far ahead that a key would have
  /// two of them on their way, which become one. Returns when all have arrived.
  void stream(uint64_t changes);

  /// Puts a change each half millisecond, and each when the last has arrived: it is sent alone.
  void single(uint64_t changes);

  /// Turns the loop once.
  void turn(double maxWaitSeconds) { loop_.turn(maxWaitSeconds); }

  /// Turns the loop until that is so, and looks each half millisecond; throws after
  /// three minutes.
  void turnUntil(const std::string& what, const std::function<bool()>& reached);

  /// How many changes were put, each with its number as the first word of the value.
  uint64_t number() const { return number_; }

  RelayTime processorTime() const;
  const Report& publisher() const { return publisher_->report(); }
  const Report& mirror() const { return mirrors_.front()->report(); }

 private:
  using Table = Zorbe::Table::LoopWriter<uint64_t, Value>;

  // What every mirror has followed, or the publisher has sent where there is none.
  uint64_t arrived() const;

  // From where what was put and what has arrived are counted.
  void mark();

  const Hosts& hosts_;
  const uint64_t records_;
  std::unique_ptr<RelayProcess> publisher_;
  std::vector<std::unique_ptr<RelayProcess>> mirrors_;
  std::vector<uint64_t> marks_;  // of the publisher, and of each mirror
  Brask::Linux::EventLoop loop_;
  Table table_;
  uint64_t number_ = 0;
};

}  // namespace Bench
