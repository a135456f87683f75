// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>
#include <zorbe/kick.h>

#include <cstdint>
#include <memory>
#include <string>

#include "change_follower.h"

namespace Quotes {

/// The reader of one incarnation of a table: its memory, and the connection to the
/// writer that says when there is something new in it.
///
/// One object for one incarnation. The base class never reports less than it has
/// reported before, and a new incarnation may begin lower; so the owner makes a new
/// object for it. The same object may connect many times.
class QuotesReader : public Zorbe::ReaderKickSm {
 public:
  /// What the owner is told. It must not destroy the reader from within. After the last two
  /// the reader has stopped reading its connection, whose unread kicks keep waking the loop:
  /// it wants to be replaced, or disconnected, on the next turn.
  class Owner {
   public:
    virtual ~Owner() = default;

    /// The connection is gone. When to try again is the owner's business.
    virtual void connectionLost() = 0;

    /// The writer goes on in other files: make a new reader for them.
    virtual void tableReplaced() = 0;

    /// The table contradicts itself.
    virtual void tableCorrupt(const std::string& why) = 0;
  };

  /// `restSeconds` above 0 makes it rest between two passes, however often the writer
  /// publishes. The handler, the counters and the owner have to outlive this object.
  QuotesReader(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
               TableReader table, double restSeconds, Zorbe::Reader::Counters& readerCounters,
               Owner& client);

  const ChangeFollower& followed() const { return follower_; }
  uint64_t passes() const { return passes_; }
  bool isConnected() const { return connected; }

  void timeout() override;
  void fdEvent(int fd) override;
  uint64_t readerSequence() override;
  void writerConnectionChanged() override;
  void writerAcknowledged() override;
  std::string readerName() const override;

 private:
  /// Ends the rest between two passes.
  class Rest : public Brask::Platform::TimeoutHandler {
   public:
    explicit Rest(QuotesReader& rested)
        : reader(rested), timer(Brask::Platform::getTimerControl(this)) {}
    void timeout() override { reader.notifying(true); }

    QuotesReader& reader;
    std::unique_ptr<Brask::Platform::TimerControl> timer;
  };

  void restAfterPass(uint64_t passesBefore, double seconds);

  ChangeFollower follower_;
  double restSeconds_;
  Owner& client_;
  uint64_t passes_ = 0;
  unsigned idlePasses_ = 0;  // in a row
  Rest rest_;
};

}  // namespace Quotes
