// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <map>
#include <string>
#include <vector>

#include "stress/relay/host_events.h"
#include "stress/relay/server_events.h"

namespace Zorbe::Test::RelayChaos {

/// What happens to the hosts and to the server, as a seed decides it.
class Events {
 public:
  Events(Hosts& hosts, Random& random, const std::vector<std::string>& without);

  /// A few, while the writer writes. Each kind comes once before any comes again.
  void burst(unsigned round);

  /// The latest, a line each.
  std::string history() const;

  unsigned kills() const { return ofHosts_.kills() + ofServer_.kills(); }
  unsigned count() const { return count_; }
  const std::map<std::string, unsigned>& byKind() const { return byKind_; }

 private:
  void addNext();
  bool isWithoutPublisher() const;
  void pause(unsigned mostMilliseconds);
  const Event& draw();

  Hosts& hosts_;
  Random& random_;
  HostEvents ofHosts_;
  ServerEvents ofServer_;
  std::vector<Event> kinds_;
  std::vector<const Event*> remaining_;  // kinds that have not come yet, since all had come
  std::deque<std::string> history_;
  std::map<std::string, unsigned> byKind_;
  unsigned round_ = 0;
  unsigned count_ = 0;
};

}  // namespace Zorbe::Test::RelayChaos
