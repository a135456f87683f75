// SPDX-License-Identifier: MIT
//
// One function a subcommand. Each writes to standard output and returns the exit status;
// what it throws is a failure.
#pragma once

#include <string>

#include "handler.h"

namespace Zorbe::Tool {

enum Exit { yes = 0, no = 1, failure = 2 };

struct Context {
  Handler& handler;
  bool json;
  bool coloured;
  std::string namespaceTrouble;  ///< why the tables' network namespace could not be entered
};

struct WatchOptions {
  std::string table;
  bool connect;  ///< to the writer, to notice its arrivals and departures
};

int list(Context& context);
int show(Context& context, const std::string& table);
int owner(Context& context, const std::string& table);
int watch(Context& context, const WatchOptions& options);
int probe(Context& context, const std::string& table, double timeoutSeconds);
int remove(Context& context, const std::string& table);
int doctor(Context& context);
int metrics(Context& context);

}  // namespace Zorbe::Tool
