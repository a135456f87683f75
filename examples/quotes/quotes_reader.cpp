// SPDX-License-Identifier: MIT
#include "quotes_reader.h"

#include <zorbe/exceptions.h>

#include <utility>

#include <unistd.h>

namespace Quotes {

namespace {

// Long enough to be worth a pass, short enough for the loop's other work: well under a
// millisecond.
constexpr uint32_t kChangesPerPass = 4096;

// The rest of a reader that is woken for nothing.
constexpr double kStallSeconds = 0.02;

}  // namespace

QuotesReader::QuotesReader(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
                           TableReader table, double restSeconds,
                           Zorbe::Reader::Counters& readerCounters, Owner& client)
    : ReaderKickSm(debugHandler, root, readerCounters),
      follower_(std::move(table), readerCounters),
      restSeconds_(restSeconds),
      client_(client),
      rest_(*this) {}

// Called when the connection has come up, and when it is lost.
//
// The first report of a connection has to come from here: before it the writer says
// nothing at all. `enabled` before it, or the writer's answer would stay unread.
void QuotesReader::writerConnectionChanged() {
  enabled = connected;
  if (!connected) {
    client_.connectionLost();
    return;
  }
  ++counters.conquerConnections;
  sendSequence(follower_.sequence());
}

// The first batch of kicks on a connection. It says that the writer knows us, and the
// library runs no pass for it.
//
// But it may hold two kicks: the answer to our first report, and, when the writer has
// published in the meantime, the kick of that publish. Both were drained together. The
// writer has taken us off its list of sleepers and waits for our next report; if we did
// nothing here, we would wait for its next kick: both for ever, while there is something
// to read. So run a pass. When there is nothing new, it merely reports once more.
void QuotesReader::writerAcknowledged() {
  doConquer();
}

// One pass. What it returns is reported to the writer, unless `conquerAgain` says that
// there is more to do: then the library calls again on the loop's next turn, and reports
// when the work is done. The loop serves everybody else in between.
uint64_t QuotesReader::readerSequence() {
  ++passes_;
  conquerAgain = false;
  if (follower_.table().isRetired()) {
    enabled = false;
    client_.tableReplaced();
    return follower_.sequence();
  }
  try {
    conquerAgain = follower_.advance(kChangesPerPass) == ChangeFollower::Progress::kMore;
  } catch (const Zorbe::CorruptionDetectedException& corruption) {
    enabled = false;
    client_.tableCorrupt(corruption.what());
    throw;  // the base class logs it, and reports nothing
  }
  ++(conquerAgain ? counters.conquerYields : counters.conquerNotified);
  const bool isIdle = !conquerAgain && follower_.sequence() == sentSequence;
  idlePasses_ = isIdle ? idlePasses_ + 1 : 0;
  return follower_.sequence();
}

// Both of these may run a pass.
void QuotesReader::timeout() {
  const uint64_t before = passes_;
  ReaderKickSm::timeout();
  restAfterPass(before, restSeconds_);
}

// One kick may bring nothing new: an earlier pass has read what it announces. Two in a row mean
// that this is not the table that the writer publishes in, as when another writer has just taken
// over. Each report then earns a kick and each kick a report, as fast as both can; a rest
// gives the owner the time to find out.
void QuotesReader::fdEvent(int fd) {
  const uint64_t before = passes_;
  ReaderKickSm::fdEvent(fd);
  const bool isStalled = idlePasses_ > 1 && restSeconds_ <= 0;
  restAfterPass(before, isStalled ? kStallSeconds : restSeconds_);
}

// Resting: kicks are still read, but answered by no pass and no report, so the writer
// sends one kick at most however much it publishes. notifying(true) makes up for it all
// with one pass. Not in the middle of a long pass: notifying(false) would cut it short.
void QuotesReader::restAfterPass(uint64_t passesBefore, double seconds) {
  if (seconds <= 0 || passes_ == passesBefore || conquerAgain) return;
  notifying(false);
  rest_.timer->start(seconds);
}

std::string QuotesReader::readerName() const {
  return "quotes reader " + std::to_string(::getpid());
}

}  // namespace Quotes
