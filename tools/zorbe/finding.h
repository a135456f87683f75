// SPDX-License-Identifier: MIT
//
// What `zorbe doctor` finds, and the checks that find it.
#pragma once

#include <string>
#include <vector>

#include "commands.h"
#include "table.h"

namespace Zorbe::Tool {

enum class Severity { ok, note, problem };

struct Finding {
  Severity severity;
  const char* check;  ///< which check: part of the interface, as scripts look for it
  std::string what;   ///< printable
  std::string mend;   ///< how to mend it, empty when there is nothing to
};

using Findings = std::vector<Finding>;

/// The base directory is there, usable and open to all.
void checkBase(const Table& base, Findings& findings);

/// The network namespace in which the tables' sockets live can be entered.
void checkNamespace(const std::string& trouble, Findings& findings);

/// Another process that watches directories can be started. `tables` is how many there are.
void checkInotify(std::size_t tables, Findings& findings);

/// Names, modes, corruption markers and files of every table.
void checkTables(const Survey& survey, Findings& findings);

}  // namespace Zorbe::Tool
