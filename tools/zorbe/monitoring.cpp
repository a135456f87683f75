// SPDX-License-Identifier: MIT
#include "monitoring.h"

#include <memory>
#include <set>
#include <string>

#include "commands/monitoring_commands.h"

namespace Zorbe::Tool {

namespace {

using Names = std::set<std::string>;

const Names kSortKeys{"name", "writer", "pid", "connections", "bytes", "records", "behind", "lag"};
const Names kStates{"alive", "stopped", "hidden", "none", "corrupt", "behind"};

void addList(CLI::App& app, Arguments& arguments) {
  const auto options = std::make_shared<ListOptions>();
  CLI::App* const command =
      withJson(addCommand(app, arguments, "list", "Show the tables below the base directory",
                          [options](Context& context) { return list(context, *options); }),
               arguments);
  command->add_option("PATTERN", options->patterns, "Names of tables, with * ? and [...]")
      ->type_name("");
  command->add_option("--state", options->states, "Only tables in one of these states")
      ->type_name("STATE")
      ->delimiter(',')
      ->take_all()
      ->expected(1)
      ->check(CLI::IsMember(kStates));
  command->add_option("--sort", options->sort, "The largest first; names from a to z (default)")
      ->type_name("COLUMN")
      ->check(CLI::IsMember(kSortKeys));
  command->add_flag("--reverse", options->reverse, "The other order");
  command->add_flag("--wide", options->wide, "All columns, wider than the terminal");
}

void addTop(CLI::App& app, Arguments& arguments) {
  const auto interval = std::make_shared<double>(1);
  addCommand(app, arguments, "top", "Show tables and readers, live",
             [interval](Context& context) { return top(context, *interval); })
      ->add_option("--interval", *interval, "Between two looks (default 1)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.1, 3600.0));
}

}  // namespace

void addMonitoring(CLI::App& app, Arguments& arguments) {
  addList(app, arguments);
  withTable(
      withJson(addCommand(app, arguments, "readers", "Show who reads a table",
                          [&](Context& context) { return readers(context, arguments.table); }),
               arguments),
      arguments);
  addTop(app, arguments);
}

}  // namespace Zorbe::Tool
