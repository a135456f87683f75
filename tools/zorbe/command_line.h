// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "commands/commands.h"

namespace Zorbe::Tool {

/// What the command line says. `run` is the chosen command.
struct Arguments {
  std::string root;
  bool rootGiven = false;
  bool json = false;
  int debug = -1;
  std::string table;
  bool tableGiven = false;
  bool filesOnly = false;
  double timeout = 1;
  std::function<int(Context&)> run;
};

inline constexpr const char* kExitStatus = "Exit status: 0 yes, 1 no, 2 wrong use or failure.";

/// Adds a command with the options that every command has.
CLI::App* addCommand(CLI::App& app, Arguments& arguments, const char* name, const char* about,
                     std::function<int(Context&)> run);

/// Add `--json`, and the name of a table, to a command, which they return.
CLI::App* withJson(CLI::App* command, Arguments& arguments);
CLI::App* withTable(CLI::App* command, Arguments& arguments, bool required = true);

using Words = std::vector<std::string>;

/// What is wrong with the subcommand on a command line, and which one was meant, perhaps;
/// printable. Empty when it is one, or none is given.
std::string unknownSubcommand(const CLI::App& app, const Words& words);

}  // namespace Zorbe::Tool
