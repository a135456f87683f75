// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "stress/relay/event.h"
#include "stress/relay/hosts.h"

namespace Zorbe::Test::RelayChaos {

/// What happens to the server and to what it holds.
class ServerEvents {
 public:
  ServerEvents(Hosts& hosts, Random& random) : hosts_(hosts), random_(random) {}

  std::vector<Event> all();

  unsigned kills() const { return kills_; }

 private:
  std::string start(Server::Memory memory);
  std::string kill(Server::Memory memory);
  std::string setBackAlone();
  std::string restart();
  std::string stop();
  std::string save();
  std::string pause();
  std::string fill();
  std::string flush();
  std::string removeKey();
  std::string trim();
  std::string addEntry();
  std::string addRecords();
  std::string endConnections();

  bool ask(const std::vector<std::string>& words);
  std::string bytes(size_t size);

  Hosts& hosts_;
  Random& random_;
  unsigned kills_ = 0;
};

}  // namespace Zorbe::Test::RelayChaos
