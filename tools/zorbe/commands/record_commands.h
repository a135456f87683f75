// SPDX-License-Identifier: MIT
//
// The commands that read and write records of tables of the ready-made kind.
#pragma once

#include <string>
#include <vector>

#include "commands/commands.h"
#include "records/importer.h"

namespace Zorbe::Tool {

struct DumpOptions {
  std::string table;
  bool csv = false;
  bool sorted = true;
};

struct TailOptions {
  std::string table;
  bool onlyNew = false;  ///< leave out what is there at the beginning
  bool wait = false;     ///< for a table that is not there yet
};

struct FeedOptions {
  std::string table;
  std::vector<std::string> key;    ///< NAME:TYPE
  std::vector<std::string> value;  ///< NAME:TYPE
  Format format = Format::kCsv;
  bool stay = false;  ///< after the end of the input
};

int get(Context& context, const std::string& table, const std::vector<std::string>& key);
int dump(Context& context, const DumpOptions& options);
int tail(Context& context, const TailOptions& options);
int feed(Context& context, const FeedOptions& options);

}  // namespace Zorbe::Tool
