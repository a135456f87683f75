// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "stress/relay/event.h"
#include "stress/relay/hosts.h"

namespace Zorbe::Test::RelayChaos {

/// What happens to writers, publishers, mirrors and links.
class HostEvents {
 public:
  HostEvents(Hosts& hosts, Random& random) : hosts_(hosts), random_(random) {}

  std::vector<Event> all();

  unsigned kills() const { return kills_; }

 private:
  std::string kill(Process& process);
  std::string restart(Process& process);
  std::string stop(Process& process);
  std::string makeAgain(Process& writer, const std::string& root);
  Process* anyPublisher();
  MirrorHost& anyMirror();
  Process& anyLink();

  std::string removeTable();
  std::string removeCopy();
  std::string killPublisher();
  std::string restartPublisher();
  std::string stopPublisher();
  std::string startPublisher();
  std::string takeOverSilently();
  std::string slowMirror();
  std::string slow(Process& link);

  Hosts& hosts_;
  Random& random_;
  unsigned kills_ = 0;
};

}  // namespace Zorbe::Test::RelayChaos
