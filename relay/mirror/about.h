// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "format/format.h"
#include "server/connection.h"

namespace Zorbe::Relay {

/// What a publisher says about its table.
struct About {
  std::string format;  // empty: there is no such table
  std::string schema;
  std::string epoch;
  std::string last;
  std::string compared;
  std::string heartbeat;
  std::string source;
  std::string host;  // where the publisher runs
  std::string pid;
  std::string version;
};

Command askAbout(const Keys& keys);
About parseAbout(const Reply& reply);

}  // namespace Zorbe::Relay
