// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include "core/timer.h"
#include "mirror/local_copy.h"
#include "mirror/source.h"
#include "progress/progress.h"
#include "server/session.h"

namespace Zorbe::Relay {

/// Keeps a table of this host as the copy on the server is, while the current loop turns. Reads
/// everything once, and then follows the stream of changes; again everything when it has missed
/// one. When the server or the publisher is away, the records stay, and the table says since when.
/// They stay also when the server was set back, until the publisher has restored what it has lost.
class Mirror : private Session::Owner {
 public:
  struct Options {
    Session::Options server;
    std::string table;
    Table::Options writing;
    std::string name;  // of the table on the server
    std::string prefix;
  };

  /// What has happened so far.
  struct Figures {
    uint64_t transfers = 0;  // of all records
    uint64_t changes = 0;    // that were followed
    uint64_t unusable = 0;   // records and changes that are none of the table's
  };

  Mirror(const Options& options, Brask::Platform::DebugHandler& log);

  /// The table says that its source is lost.
  ~Mirror() override;

  const Figures& figures() const { return figures_; }

  /// Of the transfer of all records that is under way; nothing without one.
  std::optional<Progress> progress() const;

 private:
  using Clock = std::chrono::steady_clock;

  void sessionBegan() override;
  void sessionEnded() override;

  void ask();
  void takeAbout(const Reply& reply);
  bool mayTransfer() const;
  void goOn();
  void wait();
  void settle();
  void miss();
  bool findProblem(const std::string& problem);
  void openLocal(const Table::Schema& schema);
  void transferSoon();
  void transfer();
  void beginTransfer(const Reply& reply);
  void endTransfer(const Reply& reply);
  void showCaughtUp();
  void askForRecords(const std::string& cursor);
  void takeRecords(const Reply& reply);
  void follow();
  void takeBatches(const Reply& reply);
  void takeBatch(const Reply& entry);
  void askAgain();
  void showOrigin();
  void countUnusable(const char* what);

  Options options_;
  Brask::Platform::DebugHandler& log_;
  Keys keys_;
  std::unique_ptr<LocalCopy> local_;
  Session session_;
  Source source_;
  std::optional<Id> position_;   // the last batch that the table has; none before a transfer
  Id cursor_;                    // of the stream: up to here it was read
  bool isUnused_ = false;        // nothing was ever written into the table
  bool isMissing_ = true;        // all records are needed
  std::optional<Id> doubtful_;   // an entry that does not follow the last batch
  Id from_;                      // of the transfer under way
  bool isTransfer_ = false;      // records are read
  uint64_t serversRecords_ = 0;  // when it began
  bool hasRead_ = false;         // a transfer was begun
  bool isAboutNewer_ = false;    // than position_
  Clock::time_point askedAt_{};  // the last time
  std::optional<Table::Origin> origin_;
  std::string lastProblem_;
  Figures figures_;
  std::minstd_rand random_;
  Table::Timer<Mirror> askTimer_{*this, &Mirror::ask};
  Table::Timer<Mirror> transferTimer_{*this, &Mirror::transfer};
  Table::Timer<Mirror> originTimer_{*this, &Mirror::showOrigin};
};

}  // namespace Zorbe::Relay
