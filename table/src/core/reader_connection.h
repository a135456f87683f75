// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/kick.h>

#include <cstdint>
#include <string>

namespace Zorbe::Table {

/// The reader's end of the kick channel, for a program that reads when it wants to: a kick only
/// says that there is something to read, and the report is sent when all of it was read.
class ReaderConnection : public ReaderKickSm {
 public:
  class Owner {
   public:
    virtual ~Owner() = default;

    /// The connection was made, or was lost. Must not destroy the connection.
    virtual void connectionChanged() = 0;

    /// The writer has published. Must not destroy the connection.
    virtual void kicked() = 0;
  };

  ReaderConnection(Brask::Platform::DebugHandler& debugHandler, const RootPath& root,
                   Reader::Counters& readerCounters, Owner& owner);

  bool isConnected() const { return connected; }
  int descriptor() const { return fdControl->fd(); }

  /// One attempt to reach the writer, without waiting: a stopped writer, whose queue of pending
  /// connections is full, counts as none. Throws Brask::RuntimeException when no socket can be
  /// had. Calls connectionChanged() when it succeeds.
  bool tryConnect();

  /// Reports to the writer how far was read, unless it was reported before; the writer kicks when
  /// there is more. A position below one that was reported before needs a new connection.
  void report(uint64_t position);

  /// The highest position that was ever reported.
  uint64_t reported() const { return sentSequence; }

 private:
  uint64_t readerSequence() override { return sentSequence; }
  void writerConnectionChanged() override;
  void writerAcknowledged() override;
  std::string readerName() const override { return rootPath.name; }

  Owner& owner_;
  bool hasReported_ = false;  // on this connection
};

}  // namespace Zorbe::Table
