// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <utility>

#include "host/spelling.h"

namespace Zorbe::Tool {

CLI::App* addCommand(CLI::App& app, Arguments& arguments, const char* name, const char* about,
                     std::function<int(Context&)> run) {
  CLI::App* const command = app.add_subcommand(name, about);
  command->footer(kExitStatus);
  command
      ->add_option_function<std::string>(
          "--root",
          [&arguments](const std::string& root) {
            arguments.root = absolutePath(root);
            arguments.rootGiven = true;
          },
          "Base directory, overrides the environment")
      ->type_name("DIR");
  command->add_option("--debug", arguments.debug, "Show the library's messages up to a level")
      ->type_name("LEVEL")
      ->check(CLI::Range(0, 9));
  command->callback([&arguments, run = std::move(run)] { arguments.run = run; });
  return command;
}

CLI::App* withJson(CLI::App* command, Arguments& arguments) {
  command->add_flag("--json", arguments.json, "JSON instead of text");
  return command;
}

CLI::App* withTable(CLI::App* command, Arguments& arguments, bool required) {
  command
      ->add_option_function<std::string>(
          "TABLE",
          [&arguments](const std::string& name) {
            arguments.table = canonicalName(name);
            arguments.tableGiven = true;
          },
          "Name of the table, below the base directory")
      ->required(required)
      ->type_name("");
  return command;
}

}  // namespace Zorbe::Tool
