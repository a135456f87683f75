// SPDX-License-Identifier: MIT
#include "quotes_follower.h"

#include <brask/exception.h>

#include <optional>

#include "log.h"

namespace Quotes {

namespace {

constexpr double kRetrySeconds = 0.25;

}  // namespace

QuotesFollower::QuotesFollower(Brask::Platform::DebugHandler& debugHandler,
                               const Zorbe::RootPath& root, const Options& options)
    : handler_(debugHandler),
      rootPath_(root),
      options_(options),
      timer_(Brask::Platform::getTimerControl(this)) {}

void QuotesFollower::start() {
  look();
}

// Both of these come from within the reader, which must not be destroyed there: the loop
// comes back to it.
void QuotesFollower::connectionLost() {
  timer_->start(kRetrySeconds);
}

void QuotesFollower::tableUnusable(const std::string& why) {
  log(handler_, 1, "QuotesFollower::tableUnusable() ", rootPath_, ": ", why);
  unusable_ = true;
  timer_->start(0.0);
}

void QuotesFollower::timeout() {
  look();
}

void QuotesFollower::look() {
  try {
    if (unusable_ || !reader_ || !reader_->followed().table().isInPlace(rootPath_)) mapTable();
    if (reader_ && !reader_->isConnected()) reader_->doConnect();
  } catch (const Brask::Exception& failure) {
    log(handler_, 1, "QuotesFollower::look() ", rootPath_, ": ", failure.msg());
  }
  if (!reader_ || !reader_->isConnected()) timer_->start(kRetrySeconds);
}

// The old reader is kept until there is a table to replace it by: its copy is the best
// there is. Never connected, though: what it reports means nothing to the next writer.
void QuotesFollower::mapTable() {
  if (reader_ && reader_->isConnected()) reader_->doCloseWriterConnection(true);
  std::optional<TableReader> table = TableReader::open(rootPath_);
  if (!table) return;
  reader_ = std::make_unique<QuotesReader>(handler_, rootPath_, std::move(*table),
                                           options_.restSeconds, counters_, *this);
  unusable_ = false;
}

}  // namespace Quotes
