// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "format/format.h"
#include "mirror/about.h"

namespace Zorbe::Relay {

/// What a mirror knows about the publisher and its copy on the server.
class Source {
 public:
  /// What the server says now.
  void see(const About& about);

  /// The server may have been set back: it may be another one, or one that has lost something.
  void doubt() { firstBeat_.reset(); }

  const About& about() const { return about_; }

  /// The three that follow have a meaning only while this is true.
  bool isOfThisFormat() const;

  /// The last batch.
  Id last() const { return *parseId(about_.last); }

  /// Whether it has not even the batch that the mirror has.
  bool isSetBack(const std::optional<Id>& position) const;

  /// Whether its records are not older than what was published at any time: a publisher that is
  /// there has compared them with its table; if there is none for a while, the last one has.
  bool isRestored(const std::optional<Id>& position) const;

  /// Whether the publisher is there, and its table has a writer.
  bool isLive() const;

 private:
  using Clock = std::chrono::steady_clock;

  About about_;
  Clock::time_point beatAt_{};            // when the heartbeat changed last
  std::optional<std::string> firstBeat_;  // since doubt()
  Clock::time_point firstBeatAt_{};
};

}  // namespace Zorbe::Relay
