// SPDX-License-Identifier: MIT
#include "follower.h"

#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>

#include <iostream>
#include <optional>
#include <utility>

namespace {

constexpr double kRetrySeconds = 0.25;

}  // namespace

Follower::Follower(Brask::Platform::DebugHandler& debugHandler)
    : handler_(debugHandler),
      root_(debugHandler, "guide", true),
      mounter_(debugHandler, "guide", this) {
  timer_.start(0.0);
}

void Follower::rootChanged(const std::string& /*what*/) {
  timer_.start(0.0);
}

// Called by the timer only, never from inside a callback of the reader: it may destroy it.
void Follower::look() {
  try {
    const unsigned id = Zorbe::FenixFile::read(handler_, root_.path);
    if (!reader_ || !reader_->reads(id)) openTable();
    if (reader_ && !reader_->isConnected()) reader_->doConnect();
  } catch (const Brask::Exception& problem) {
    std::cerr << "guide-reader: " << problem.what() << std::endl;
  }
  if (!reader_ || !reader_->isConnected()) timer_.start(kRetrySeconds);
}

void Follower::openTable() {
  reader_.reset();  // closes its connection
  std::optional<NumberTable> table = NumberTable::open(handler_, root_);
  if (!table) return;
  std::cout << "incarnation " << table->id() << std::endl;
  reader_ = std::make_unique<NumberReader>(handler_, root_, counters_, std::move(*table),
                                           [this] { timer_.start(kRetrySeconds); });
}
