// SPDX-License-Identifier: MIT
//
// The smallest table that can be right or wrong: a sequence number in memory that all processes
// of a test share. Its writer and reader derive from the library's state machines as a client's
// do.
#pragma once

#include <brask/platform.h>
#include <zorbe/kick.h>
#include <zorbe/unlock.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>

#include "support/child_process.h"
#include "support/loop.h"
#include "support/shared.h"

namespace Zorbe::Test {

/// Memory that a test and its children share; zero at first.
class SharedTable {
 public:
  std::atomic<uint64_t>& sequence() { return *sequence_; }

 private:
  Shared<std::atomic<uint64_t>> sequence_;
};

class TableWriter : public WriterKickSm {
 public:
  TableWriter(Brask::Platform::DebugHandler& log, const RootPath& root, SharedTable& table)
      : WriterKickSm(log, root, false), table_(table) {}

  /// Becomes the writer, continues the sequence of the last one, and listens.
  void open();

  /// Publishes `count` times, each with its own kick round.
  void publish(uint64_t count = 1);

  uint64_t published() const { return writerSequence; }

  /// Every reader has reported the last sequence.
  bool allCaughtUp() const { return lowestSequence() == writerSequence; }

  int expectReconnects() override { return 0; }
  void readersChanged() override { ++changes; }

  using WriterKickSm::kickCount;
  using WriterKickSm::readers;
  using WriterKickSm::sleepingReaders;

  unsigned changes = 0;  ///< calls of readersChanged

 private:
  SharedTable& table_;
};

class TableReader : public ReaderKickSm {
 public:
  TableReader(Brask::Platform::DebugHandler& log, const RootPath& root, SharedTable& table)
      : ReaderKickSm(log, root, statistics_), table_(table) {}

  uint64_t readerSequence() override;
  void writerConnectionChanged() override;
  void writerAcknowledged() override { doConquer(); }
  std::string readerName() const override { return "a reader of a test"; }

  uint64_t at() const { return at_; }
  bool isConnected() const { return connected; }

  using ReaderKickSm::conquerAgain;
  using ReaderKickSm::fdControl;

  std::function<void()> passed;  ///< called by each pass, before its report
  std::function<void()> lost;    ///< called when the connection was lost

 private:
  SharedTable& table_;
  uint64_t at_ = 0;
  Reader::Counters statistics_ = {};
};

/// Is notified of departures of the writer, connects again each time, and counts.
class Departures : public WriterUnlockSm {
 public:
  Departures(Brask::Platform::DebugHandler& log, const RootPath& root)
      : WriterUnlockSm(log, "departures", root) {}

  /// Connects, now or as soon as there is a writer.
  void watch();

  void writerUnlocked() override;
  bool isWatching() const { return watching_; }

  std::function<void()> arrived;   ///< connected to a writer
  std::function<void()> departed;  ///< a writer that it was connected to has disconnected

  unsigned connections = 0;  ///< to writers
  unsigned departures = 0;   ///< of writers that it was connected to
  unsigned misses = 0;       ///< attempts that found no writer

 private:
  bool watching_ = false;
};

/// Receives the messages of the test in the child's loop.
struct Commands : FdProbe {
  Commands(Channel& parent, const std::function<void(const std::string& words)>& action)
      : FdProbe([&parent, action](int) { action(parent.receive()); }) {
    control->watch(parent.fd());
  }
};

}  // namespace Zorbe::Test
