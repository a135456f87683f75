// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <iostream>
#include <sstream>

#include "host/spelling.h"
#include "output/text.h"

namespace Zorbe::Relay {

namespace {

void addFiles(CLI::App& command, Arguments& arguments) {
  command.add_option("--ca-file", arguments.tls.authorities, "Whose servers TLS trusts, in PEM")
      ->type_name("FILE");
  auto* const certificate =
      command.add_option("--cert", arguments.tls.certificate, "Client certificate, in PEM")
          ->type_name("FILE");
  auto* const key =
      command.add_option("--key", arguments.tls.key, "Its private key, in PEM")->type_name("FILE");
  certificate->needs(key);
  key->needs(certificate);
}

CLI::App* addCommand(CLI::App& app, Arguments& arguments, Action action, const char* name,
                     const char* about) {
  CLI::App* const command = app.add_subcommand(name, about);
  command->add_option("--prefix", arguments.prefix, "Of the server's keys")->type_name("TEXT");
  command->add_option("--user", arguments.user, "ACL user of the server")->type_name("NAME");
  command->add_option("--password-file", arguments.passwordFile, "Its first line is the password")
      ->type_name("FILE");
  addFiles(*command, arguments);
  command
      ->add_option_function<std::string>(
          "--root",
          [&arguments](const std::string& root) { arguments.root = Tool::absolutePath(root); },
          "Base directory of the tables, overrides the environment")
      ->type_name("DIR");
  command->add_option("--debug", arguments.debug, "Show messages up to a level")
      ->type_name("LEVEL")
      ->check(CLI::Range(0, 9));
  command->callback([&arguments, action] { arguments.action = action; });
  return command;
}

void addAddress(CLI::App& command, Arguments& arguments, const char* option) {
  command
      .add_option(option, arguments.address,
                  "redis://host:port/0, unix:///path or redis+sentinel://host:port,.../master; "
                  "rediss for TLS")
      ->required()
      ->type_name("ADDRESS");
}

void addTable(CLI::App& command, Arguments& arguments, bool isRequired) {
  command.add_option("TABLE", arguments.table, "Name of the table")
      ->required(isRequired)
      ->type_name("");
}

CLI::Option* addName(CLI::App& command, Arguments& arguments, const char* about) {
  return command.add_option("--as", arguments.name, about)->type_name("NAME");
}

void addDirections(CLI::App& app, Arguments& arguments) {
  CLI::App& publishing = *addCommand(app, arguments, Action::kPublish, "publish",
                                     "Keep a copy of a table of this host on the server");
  addTable(publishing, arguments, true);
  addAddress(publishing, arguments, "--to");
  addName(publishing, arguments, "Another name on the server");
  publishing
      .add_option("--history", arguments.history,
                  "MiB of changes that the server keeps (default 64)")
      ->type_name("MIB")
      ->check(CLI::Range(1, 1 << 20));
  CLI::App& mirroring = *addCommand(app, arguments, Action::kMirror, "mirror",
                                    "Keep a table of this host as the server's copy is");
  addTable(mirroring, arguments, true);
  addAddress(mirroring, arguments, "--from");
  addName(mirroring, arguments, "Another name on this host");
}

void addQueries(CLI::App& app, Arguments& arguments) {
  CLI::App& status = *addCommand(app, arguments, Action::kStatus, "status",
                                 "Show what the server has of its tables, or of one");
  addTable(status, arguments, false);
  addAddress(status, arguments, "--from");
  addName(status, arguments, "The table's name on this host")->needs("TABLE");
  status.add_flag("--json", arguments.json, "JSON instead of text");
  status.add_flag("--wide", arguments.isWide, "All columns, wider than the terminal");
  CLI::App& metrics = *addCommand(app, arguments, Action::kMetrics, "metrics",
                                  "Print the same in the Prometheus text format");
  addAddress(metrics, arguments, "--from");
}

// Messages about wrong use quote what was given.
int reportUse(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream messages;
  const int status = app.exit(error, std::cout, messages) == 0 ? kSuccess : kFailure;
  std::istringstream lines(messages.str());
  for (std::string line; std::getline(lines, line);) std::cerr << Tool::printable(line) << '\n';
  return status;
}

}  // namespace

std::optional<int> parse(int argc, char** argv, Arguments& arguments) {
  CLI::App app("Carries tables to other hosts over a Redis server.", "zorbe-relay");
  app.require_subcommand(1);
  app.set_version_flag("--version", ZORBE_VERSION);
  app.footer(
      "Exit status: 0 yes, 1 another publisher has taken over, or a publisher is silent, "
      "2 wrong use or failure.");
  addDirections(app, arguments);
  addQueries(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return reportUse(app, error);
  }
  return std::nullopt;
}

}  // namespace Zorbe::Relay
