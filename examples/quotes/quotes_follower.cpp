// SPDX-License-Identifier: MIT
#include "quotes_follower.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <optional>
#include <utility>

#include "log.h"

namespace Quotes {

namespace {

// How long something that is missing may stay so before the next look.
constexpr double kRetrySeconds = 0.25;

// Changes of a directory come in groups. One look when the dust has settled.
constexpr double kSettleSeconds = 0.02;

}  // namespace

QuotesFollower::QuotesFollower(Brask::Platform::DebugHandler& debugHandler,
                               const Zorbe::RootPath& root, const Options& options)
    : handler_(debugHandler),
      rootPath_(root),
      options_(options),
      timer_(Brask::Platform::getTimerControl(this)),
      departure_(*this, debugHandler, root),
      mounter_(debugHandler, root.name, this) {}

void QuotesFollower::start() {
  look();
}

// These four are called by objects that look() may replace, so they only see to it that the
// loop comes back here.
void QuotesFollower::connectionLost() {
  tell("disconnected");
  lookWithin(kRetrySeconds);
}

// At once: the reader has stopped reading its connection, whose kicks keep waking the loop.
void QuotesFollower::tableUnusable(const std::string& why) {
  log(handler_, 1, "QuotesFollower::tableUnusable() ", rootPath_, ": ", why);
  distrusted_ = true;
  lookDue_ = true;
  timer_->start(0.0);
}

void QuotesFollower::rootChanged(const std::string& what) {
  log(handler_, 5, "QuotesFollower::rootChanged() ", rootPath_, " ", what);
  ++counters_.inotifyTriggers;
  lookWithin(kSettleSeconds);
}

// Comes once for every connection that was up, and 0.1 seconds after every attempt that
// found no writer.
void QuotesFollower::writerGone() {
  if (std::exchange(sawWriter_, false)) tell("departed");
  lookWithin(kRetrySeconds);
}

void QuotesFollower::timeout() {
  lookDue_ = false;
  look();
}

// Not moved when it is due already: a directory that changes all the time would put it off
// for ever.
void QuotesFollower::lookWithin(double seconds) {
  if (std::exchange(lookDue_, true)) return;
  timer_->start(seconds);
}

// First the writer, then the table, then the reader's connection. In this order, because a
// writer that can be connected to has its files in place: a table that is found current
// after that is this writer's, and what is reported about it is understood.
void QuotesFollower::look() {
  try {
    if (std::exchange(distrusted_, false) && !dropTable()) return lookWithin(kRetrySeconds);
    if (!findWriter()) return;  // writerGone() follows
    if (!isCurrent() && !mapTable()) return lookWithin(kRetrySeconds);
    if (!reader_->isConnected()) reader_->doConnect();
    if (!reader_->isConnected()) lookWithin(kRetrySeconds);
  } catch (const Brask::Exception& failure) {
    log(handler_, 1, "QuotesFollower::look() ", rootPath_, ": ", failure.msg());
    ++counters_.remountTimeouts;
    lookWithin(kRetrySeconds);
  }
}

bool QuotesFollower::findWriter() {
  if (!departure_.seesWriter()) departure_.doConnect();
  sawWriter_ = departure_.seesWriter();
  return sawWriter_;
}

bool QuotesFollower::isCurrent() {
  if (!reader_ || !usable_ || !reader_->followed().table().isInPlace(rootPath_)) return false;
  try {
    return Zorbe::FenixFile::validate(handler_, rootPath_.path,
                                      reader_->followed().table().fenix());
  } catch (const Zorbe::CorruptionDetectedException&) {
    return false;  // the library has logged it
  }
}

// False when the files that make no sense are still those of the table: whoever mapped them
// again at once would be back here at once.
bool QuotesFollower::dropTable() {
  usable_ = false;
  if (reader_->isConnected()) reader_->doCloseWriterConnection(true);
  const TableReader& table = reader_->followed().table();
  return table.isRetired() || !table.isInPlace(rootPath_);
}

// The old reader is kept until there is a table to replace it by: its copy is the best there
// is. Disconnected, though: what it would report means nothing to the new incarnation.
bool QuotesFollower::mapTable() {
  usable_ = false;
  if (reader_ && reader_->isConnected()) reader_->doCloseWriterConnection(true);
  std::optional<TableReader> table = TableReader::open(rootPath_);
  if (!table) return false;
  reader_ = std::make_unique<QuotesReader>(handler_, rootPath_, std::move(*table),
                                           options_.restSeconds, counters_, *this);
  usable_ = true;
  tell("mapped fenix=" + std::to_string(reader_->followed().table().fenix()));
  return isCurrent();
}

void QuotesFollower::tell(const std::string& event) {
  log(handler_, 2, "QuotesFollower::tell() ", rootPath_, " ", event);
  if (options_.onEvent) options_.onEvent(event);
}

}  // namespace Quotes
