// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "server/encryption.h"

namespace Zorbe::Relay {

enum Exit { kSuccess = 0, kEnded = 1, kFailure = 2 };

enum class Action { kPublish, kMirror, kStatus, kMetrics };

/// What the command line asks for.
struct Arguments {
  Action action = Action::kPublish;
  std::string table;  // empty: all
  std::string address;
  std::string name;
  std::string prefix = "zorbe:";
  std::string user;
  std::string passwordFile;
  TlsFiles tls;
  std::string root;
  std::optional<int> debug;
  uint64_t history = 64;
  bool json = false;
  bool isWide = false;
};

/// Returns the exit status when nothing is left to do: help was printed, or a text on standard
/// error says what is wrong.
std::optional<int> parse(int argc, char** argv, Arguments& arguments);

}  // namespace Zorbe::Relay
