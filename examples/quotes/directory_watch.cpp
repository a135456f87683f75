// SPDX-License-Identifier: MIT
#include "directory_watch.h"

#include <zorbe/exceptions.h>

#include <utility>

namespace Quotes {

namespace {

// Each attempt that fails is a message of level 0.
constexpr double kRetrySeconds = 0.5;

}  // namespace

DirectoryWatch::DirectoryWatch(Brask::Platform::DebugHandler& debugHandler, std::string tableName,
                               Zorbe::MounterBase& client)
    : handler_(debugHandler),
      tableName_(std::move(tableName)),
      client_(client),
      timer_(Brask::Platform::getTimerControl(this)),
      mounter_(std::make_unique<Zorbe::MounterSm>(debugHandler, tableName_, &client)) {}

void DirectoryWatch::renew() {
  mounter_.reset();
  timer_->start(kRetrySeconds);
}

void DirectoryWatch::timeout() {
  try {
    mounter_ = std::make_unique<Zorbe::MounterSm>(handler_, tableName_, &client_);
  } catch (const Brask::Exception&) {  // logged
    return timer_->start(kRetrySeconds);
  }
  client_.rootChanged("watch renewed");
}

}  // namespace Quotes
