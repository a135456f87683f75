// SPDX-License-Identifier: MIT
#include "mirror/source.h"

#include <utility>

namespace Zorbe::Relay {

void Source::see(const About& about) {
  const About before = std::exchange(about_, about);
  if (about_.heartbeat != before.heartbeat) beatAt_ = Clock::now();
  if (firstBeat_) return;
  firstBeat_ = about_.heartbeat;
  firstBeatAt_ = Clock::now();
}

bool Source::isOfThisFormat() const {
  return about_.format == kFormat && parseSchema(about_.schema) && parseId(about_.last);
}

bool Source::isSetBack(const std::optional<Id>& position) const {
  return position && last() < *position;
}

bool Source::isRestored(const std::optional<Id>& position) const {
  if (about_.compared != about_.epoch || !firstBeat_) return false;
  if (about_.heartbeat != *firstBeat_) return true;
  return !isSetBack(position) && Clock::now() - firstBeatAt_ > kFreshHeartbeat;
}

bool Source::isLive() const {
  return about_.source == "live" && Clock::now() - beatAt_ < kFreshHeartbeat;
}

}  // namespace Zorbe::Relay
