// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "core/timer.h"
#include "progress/progress.h"
#include "publish/comparison.h"
#include "publish/server_copy.h"
#include "server/session.h"

namespace Zorbe::Relay {

/// Keeps the copy of one table on the server as the table is, while the current loop turns. When
/// the server comes back, and when records may have been missed, it compares the two and sends the
/// differences; otherwise it sends what changes. While the server is away nothing is kept for it.
class Publisher : private Session::Owner, private ServerCopy::Owner {
 public:
  struct Options {
    Session::Options server;
    std::string table;
    Table::Options reading;
    std::string name;  // of the table on the server
    std::string prefix;
    uint64_t history = 0;  // bytes of changes that the stream keeps
  };

  /// What has happened so far.
  struct Figures {
    uint64_t sentChanges = 0;
    uint64_t comparisons = 0;
  };

  Publisher(const Options& options, Brask::Platform::DebugHandler& log);

  /// Why publishing has ended; empty while it has not.
  const std::string& end() const { return end_; }

  Figures figures() const;

  /// Of the comparison that is under way; nothing without one.
  std::optional<Progress> progress() const;

 private:
  enum class Phase {
    kReopening,  // for a new reader
    kWaiting,    // for the server, or for the table
    kDraining,   // what is due is part of the comparison that follows
    kClaiming,   // to become the publisher
    kFollowing,  // changes are sent, and what a comparison finds
  };

  void sessionBegan() override;
  void sessionEnded() override;
  void claimed() override;
  void hasRoom() override;
  void fenced(const std::string& why) override;

  void openTable();
  void start();
  void drain();
  bool isDrained();
  void compare();
  void compareMore();
  bool tryToCompare(const std::function<void()>& step);
  void sendChanges();
  void sayWhenCompared();
  void askForRecords();
  void seeRecords(const Reply& reply);
  void advance();
  std::optional<Table::ReaderCore::Change> next();
  bool takeChange();
  bool tookReset();
  bool isReplaced() const;
  void reopenTable();
  void listen(bool isWanted);
  void beat();
  static void ready(void* self);

  Options options_;
  Keys keys_;
  Brask::Platform::DebugHandler& log_;
  std::unique_ptr<Table::ReaderCore> reader_;
  Table::Schema schema_;
  std::vector<uint64_t> key_;
  std::string value_;
  Session session_;
  ServerCopy copy_;
  Phase phase_ = Phase::kWaiting;
  std::optional<Comparison> comparison_;
  bool isEachServersSeen_ = false;  // the comparison's first part is done
  bool isAsked_ = false;            // for the next of the server's records
  bool isComparedAgain_ = false;    // after the comparison that is under way
  bool isCompared_ = false;         // once since the claim
  std::string cursor_;              // of the server's records
  uint64_t serversRecords_ = 0;     // when the comparison began
  uint64_t tableRecords_ = 0;       // that the last pass over the table before it has met
  bool isPass_ = false;             // between reset and complete
  uint64_t toDrain_ = 0;            // changes that are taken before the claim, at most
  uint64_t incarnation_ = 0;        // of the table that is published
  uint64_t caughtUp_ = 0;           // every change up to here was taken
  Batch batch_;
  uint64_t batches_ = 0;
  uint64_t comparisons_ = 0;
  std::string end_;
  Table::Timer<Publisher> beatTimer_{*this, &Publisher::beat};
  Table::Timer<Publisher> openTimer_{*this, &Publisher::openTable};
};

}  // namespace Zorbe::Relay
