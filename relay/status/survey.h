// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "format/format.h"
#include "mirror/about.h"
#include "server/session.h"

namespace Zorbe::Relay {

/// What a server has of one table.
struct ServedTable {
  std::string name;
  About about;
  std::optional<uint64_t> records;
  std::optional<uint64_t> batches;      // of changes that the stream keeps
  std::optional<uint64_t> streamBytes;  // of the server's memory
  std::optional<double> silence;        // seconds since the last heartbeat; none: there was none

  /// A relay of this version understands it.
  bool isUnderstood() const { return about.format == kFormat; }
  /// Its publisher is there.
  bool isPublished() const;
};

/// Asks a server once for its tables, while the current loop turns. Changes nothing there.
class Survey : private Session::Owner {
 public:
  /// Without a table: all that have the prefix.
  Survey(const Session::Options& server, const std::string& prefix,
         const std::optional<std::string>& table, Brask::Platform::DebugHandler& log);

  /// It has an answer to everything, or has failed.
  bool isOver() const;

  /// Why it has failed; empty while it has not.
  std::string failure() const;

  /// In the order of their names.
  const std::vector<ServedTable>& tables() const { return tables_; }

 private:
  void sessionBegan() override;
  void sessionEnded() override;

  void askForNames(const std::string& cursor);
  void takeNames(const Reply& reply);
  void askForTables();
  void askFor(ServedTable& table);
  void askForNumber(const Command& command, std::optional<uint64_t>& number);
  void finish();
  void takeAbout(ServedTable& table, const Reply& reply);
  void ask(const Command& command, Connection::Answer answer);

  std::string prefix_;
  unsigned mostAttempts_;
  Session session_;
  std::set<std::string> names_;  // the one table from the start, or those that are found
  std::vector<ServedTable> tables_;
  uint64_t now_ = 0;  // of the server's clock, milliseconds
  bool isDone_ = false;
  std::string failure_;
};

}  // namespace Zorbe::Relay
