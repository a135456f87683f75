// SPDX-License-Identifier: MIT
#include "stress/relay/publishers.h"

#include <algorithm>

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr const char* kTakenOver = "another publisher of this table has taken over";
constexpr int kEndedStatus = 1;
constexpr size_t kKeptLogs = 4;

std::string nameOf(unsigned number) {
  return "publisher " + std::to_string(number);
}

}  // namespace

Process& Publishers::start() {
  wereOthers_ |= !all_.empty();
  all_.emplace_back(nameOf(++started_), arguments_);
  all_.back().start();
  return all_.back();
}

void Publishers::settle() {
  isOrderKnown_ = true;
  wereOthers_ = false;
}

void Publishers::noticeEnds() {
  for (auto publisher = all_.begin(); publisher != all_.end();) {
    if (!publisher->hasEnded()) {
      ++publisher;
      continue;
    }
    const int status = publisher->reap();
    requireReason(*publisher, status);
    keepLog(*publisher);
    publisher = all_.erase(publisher);
  }
}

// The newest one ends for none, unless the server forgot that it was the newest.
void Publishers::requireReason(const Process& ended, int status) const {
  const bool isNewest = ended.name() == nameOf(started_);
  const bool isReason = wereOthers_ && (!isNewest || !isOrderKnown_);
  const bool isReported = ended.log().find(kTakenOver) != std::string::npos;
  if (isReason && isReported && status == kEndedStatus) return;
  throw Failure(ended.name() + " has ended by itself, with status " + std::to_string(status) +
                (isNewest ? ", the newest" : ", an older one") + "\n" + ended.log());
}

void Publishers::kill(Process& publisher) {
  publisher.kill();
  keepLog(publisher);
  all_.remove_if([&](const Process& each) { return &each == &publisher; });
}

void Publishers::keepLog(const Process& publisher) {
  oldLogs_.push_back("---- " + publisher.name() + ", which has ended:\n" + publisher.log());
  if (oldLogs_.size() > kKeptLogs) oldLogs_.pop_front();
}

std::string Publishers::logs() const {
  std::string text;
  for (const std::string& log : oldLogs_) text += log;
  for (const Process& publisher : all_) {
    text += "---- " + publisher.name() + ":\n" + publisher.log();
  }
  return text;
}

}  // namespace Zorbe::Test::RelayChaos
