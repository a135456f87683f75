// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <string>

#include "format/format.h"
#include "publish/batch.h"
#include "server/session.h"

namespace Zorbe::Relay {

/// The copy of a table on the server, as its publisher sees it: becomes the publisher, and sends
/// batches, several of them before the first is answered.
class ServerCopy {
 public:
  class Owner {
   public:
    virtual ~Owner() = default;

    /// This is the publisher now: what the server has can be compared with the table.
    virtual void claimed() = 0;

    /// There is room for another batch.
    virtual void hasRoom() = 0;

    /// Another publisher has taken over: this one has to end.
    virtual void fenced(const std::string& why) = 0;
  };

  /// The stream keeps so many bytes of changes.
  ServerCopy(Session& session, const Keys& keys, uint64_t history, Owner& owner);

  /// In a session that has just begun.
  void claim(const Table::Schema& schema);

  /// After the session has ended.
  void forget();

  bool hasRoomForBatch() const { return isClaimed_ && unanswered_ < kMostUnanswered; }

  /// Sends the batch, which is empty afterwards. Only while there is room.
  void append(Batch& batch);

  /// Says that the publisher is there, and whether the records on the server are the table's once
  /// each batch so far has arrived.
  void beat(bool isSourceLive, bool isCompared);

  uint64_t sentChanges() const { return sentChanges_; }

 private:
  static constexpr size_t kMostUnanswered = 8;

  // A batch that the stream has.
  struct Kept {
    Id id;
    size_t bytes;
  };

  void loadScripts();
  void load(const char* script, std::string ServerCopy::*digest, void (ServerCopy::*next)());
  void runClaim();
  void takeClaim(const Reply& reply);
  void check(const Reply& reply);
  std::string oldestToKeep(size_t bytes);
  Command script(const std::string& digest) const;

  Session& session_;
  Keys keys_;
  uint64_t history_;
  std::string token_;  // that no other publisher has
  Owner& owner_;
  Table::Schema schema_;
  std::string claimDigest_, appendDigest_, heartbeatDigest_;
  bool isClaimed_ = false;
  uint64_t epoch_ = 0;     // 0: it never was the publisher
  uint64_t sequence_ = 0;  // of the batch sent last
  std::string before_;     // the id of that one, or of the last one before this epoch
  size_t unanswered_ = 0;
  std::deque<Kept> kept_;
  uint64_t keptBytes_ = 0;
  uint64_t sentChanges_ = 0;
};

}  // namespace Zorbe::Relay
