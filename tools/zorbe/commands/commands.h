// SPDX-License-Identifier: MIT
//
// One function per subcommand. Each writes to standard output and returns the exit status;
// an exception is a failure.
#pragma once

#include <optional>
#include <string>

#include "host/handler.h"
#include "host/table.h"

namespace Zorbe::Tool {

enum Exit { kYes = 0, kNo = 1, kFailure = 2 };

struct Context {
  Handler& handler;
  bool json;
  bool coloured;
  std::string namespaceError;  ///< why the network namespace of the tables could not be entered;
                               ///< empty: it was
};

struct WatchOptions {
  std::string table;
  bool connect;  ///< connect to the writer, to report its start and its end
};

/// The process as a few words.
std::string describe(const Writer& writer);

/// Reports on standard error that there is no such table; returns kNo.
int reportMissing(const Table& table);

int show(Context& context, const std::string& table);
int owner(Context& context, const std::string& table);
int watch(Context& context, const WatchOptions& options);
int probe(Context& context, const std::string& table, double timeoutSeconds);
int remove(Context& context, const std::string& table);
/// Without a table: the host and all tables.
int doctor(Context& context, const std::optional<std::string>& table);
int metrics(Context& context);

}  // namespace Zorbe::Tool
