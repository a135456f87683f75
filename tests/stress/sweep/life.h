// SPDX-License-Identifier: MIT
//
// The whole life of a table in one process with the bundled loop, led by a client that
// survives every error: it notes what is thrown at it, tries again what can be tried again,
// and goes on.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/mounter.h>

#include <array>
#include <functional>
#include <memory>
#include <string>

#include "stress/sweep/witness.h"
#include "support/table.h"

namespace Zorbe::Test::Sweep {

/// A reader whose acknowledgement can be seen.
class Follower : public TableReader {
 public:
  using ReaderKickSm::acknowledged;
  using TableReader::TableReader;
};

/// Hears of changes in the root directory.
class Watcher : public MounterBase {
 public:
  Watcher(Witness& witness, const std::string& name)
      : witness_(witness), mounter_(witness, name, this) {}
  void rootChanged(const std::string& what) override;

  unsigned changes = 0;
  bool failed = false;  ///< has been told that the directory cannot be watched

 private:
  Witness& witness_;
  MounterSm mounter_;
};

class Life {
 public:
  /// How hard the client tries to get over what goes wrong. With small effort it does not
  /// connect again: a connect beyond a listening queue that nobody empties never returns.
  enum class Effort { normal, small };

  Life(Witness& witness, SharedTable& table, Effort effort);
  ~Life();

  void live();

  /// At the end everybody was where they should be, as if nothing had ever failed.
  bool recovered() const { return recovered_; }

  /// The loop went on turning without end.
  bool spun() const { return spun_; }

 private:
  bool begin();
  void openForReaders();
  void refuseSecondWriter();
  void publishToReaders();
  void deferPasses();
  void useFiles();
  void exchangeReader();
  void loseDirectory();
  void changeWriter();
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

  void pump();
  void settle();
  bool content() const;
  bool isContent(const Follower& reader) const;
  void care();
  void careFor(Follower& reader);
  bool hearsOfChanges();
  void publish();

  template <typename Step>
  bool attempt(Step step) {
    return witness_.attempt(step);
  }
  template <typename Make>
  bool twice(Make make) {
    return attempt(make) || attempt(make);
  }

  Witness& witness_;
  SharedTable& table_;
  const unsigned turns_;   // in which the loop has to come to rest
  const unsigned rounds_;  // of caring for those who are not where they should be
  bool recovered_ = false;
  bool spun_ = false;

  std::unique_ptr<Brask::Linux::EventLoop> loop_;
  std::unique_ptr<RootPath> root_;
  std::unique_ptr<TableWriter> writer_;
  std::array<std::unique_ptr<Follower>, 2> readers_;
  std::unique_ptr<Departures> departures_;
  std::unique_ptr<Watcher> watcher_;
};

}  // namespace Zorbe::Test::Sweep
