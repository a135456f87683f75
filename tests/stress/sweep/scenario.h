// SPDX-License-Identifier: MIT
//
// All operations of a table in one process with the bundled loop, by a client that goes on
// after every error: it records what is thrown, and tries again what can be tried again.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/mounter.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "stress/sweep/event_recorder.h"
#include "support/table.h"

namespace Zorbe::Test::Sweep {

/// A reader whose acknowledgement can be seen.
class Follower : public TableReader {
 public:
  using ReaderKickSm::acknowledged;
  using TableReader::TableReader;
};

/// Counts the changes in the root directory.
class RootWatcher : public MounterBase {
 public:
  RootWatcher(EventRecorder& recorder, const std::string& name)
      : recorder_(recorder), mounter_(recorder, name, this) {}
  void rootChanged(const std::string& what) override;

  unsigned changes = 0;
  bool failed = false;  ///< an error was reported: the directory is not watched

 private:
  EventRecorder& recorder_;
  MounterSm mounter_;
};

class Scenario {
 public:
  /// How often the client tries again. With small effort it does not connect again: a connect
  /// beyond a listening queue that is never emptied does not return.
  enum class Effort { kNormal, kSmall };

  Scenario(EventRecorder& recorder, SharedTable& table, Effort effort);
  ~Scenario();

  void run();

  /// At the end writer, readers and watches were complete, as if nothing had failed.
  bool recovered() const { return recovered_; }

  /// The loop did not become idle.
  bool neverIdle() const { return neverIdle_; }

 private:
  bool begin();
  void openForReaders();
  void refuseSecondWriter();
  void publishToReaders();
  void deferPasses();
  void useFiles();
  void replaceReader();
  void removeDirectory();
  void replaceWriter();
  void useTimer();
  void checkRecovery();
  void stopLoop();
  void cleanUp();
  void end();

  bool makeLoop();
  void makeWriter();
  void makeReader(std::unique_ptr<Follower>& reader);
  void makeDepartures();
  void makeWatcher();

  void runUntilIdle();
  void recover();
  bool isComplete() const;
  bool isUpToDate(const Follower& reader) const;
  void repair();
  void repairReader(Follower& reader);
  bool observesChanges();
  void publish();

  template <typename Step>
  bool attempt(Step step) {
    return recorder_.attempt(step);
  }
  template <typename Make>
  bool tryTwice(Make make) {
    return attempt(make) || attempt(make);
  }

  EventRecorder& recorder_;
  SharedTable& table_;
  const unsigned turns_;   // in which the loop has to come to rest
  const unsigned rounds_;  // of repairing what is not complete
  bool recovered_ = false;
  bool neverIdle_ = false;

  std::unique_ptr<Brask::Linux::EventLoop> loop_;
  std::unique_ptr<RootPath> root_;
  std::unique_ptr<TableWriter> writer_;
  std::array<std::unique_ptr<Follower>, 2> readers_;
  std::unique_ptr<Departures> departures_;
  std::unique_ptr<RootWatcher> watcher_;
};

}  // namespace Zorbe::Test::Sweep
