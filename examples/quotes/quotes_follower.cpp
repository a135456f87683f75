// SPDX-License-Identifier: MIT
#include "quotes_follower.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <optional>
#include <utility>

#include "clock.h"
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
      watch_(debugHandler, root.name, *this) {}

void QuotesFollower::start() {
  look();
}

void QuotesFollower::recover() {
  disconnect();
  watch_.renew();
  lookWithin(kRetrySeconds);
}

// What follows is called by objects that look() may replace: it only sees to it that the loop
// comes back here.
void QuotesFollower::connectionLost() {
  tell("disconnected");
  lookWithin(kRetrySeconds);
}

void QuotesFollower::tableReplaced() {
  tell("replaced");
  usable_ = false;
  lookWithin(0.0);
}

void QuotesFollower::tableCorrupt(const std::string& why) {
  usable_ = false;
  corruption_ = why;
  lookWithin(0.0);
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
  nextLook_ = 0;
  look();
}

// Made earlier, but never put off: a directory that changes all the time would do that for
// ever.
void QuotesFollower::lookWithin(double seconds) {
  const uint64_t at = monotonicNanoseconds() + static_cast<uint64_t>(seconds * 1e9);
  if (nextLook_ != 0 && nextLook_ <= at) return;
  nextLook_ = at;
  timer_->start(seconds);
}

// First the writer, then the table, then the reader's connection. In this order, because a
// writer that can be connected to has its files in place: a table that is found current
// after that is this writer's, and what is reported about it is understood.
void QuotesFollower::look() {
  try {
    if (!usable_) leaveTable();
    if (!corruption_.empty()) return reportCorruption();
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

// The directory's id is that of our table, and so are its files: somebody may have removed
// them, and left the id.
bool QuotesFollower::isCurrent() {
  if (!reader_ || !usable_) return false;
  const TableReader& table = reader_->followed().table();
  try {
    return Zorbe::FenixFile::validate(handler_, rootPath_.path, table.fenix()) &&
           table.isInPlace(rootPath_);
  } catch (const Zorbe::CorruptionDetectedException&) {  // logged by the library
    tell("refused fenix=" + std::to_string(table.fenix()));
    return false;
  }
}

// Once for an incarnation, since this, too, changes the directory. Not mapped again at once:
// it would be as corrupt as before, unless the writer replaces what is wrong.
void QuotesFollower::reportCorruption() {
  const std::string why = std::exchange(corruption_, "");
  lookWithin(kRetrySeconds);
  const uint32_t fenix = reader_->followed().table().fenix();
  if (std::exchange(corruptFenix_, fenix) == fenix) return;
  tell("corrupt fenix=" + std::to_string(fenix));
  Zorbe::Util::writeCorruptionFile(handler_, rootPath_.path, why);
}

// The old reader is kept until there is a table to replace it by: its copy is the best there
// is. Disconnected, though: what it would report means nothing to the new incarnation.
void QuotesFollower::leaveTable() {
  usable_ = false;
  disconnect();
}

void QuotesFollower::disconnect() {
  if (reader_ && reader_->isConnected()) reader_->doCloseWriterConnection(true);
}

bool QuotesFollower::mapTable() {
  leaveTable();
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
