// SPDX-License-Identifier: MIT
#include <locale.h>
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "command_line.h"
#include "commands/commands.h"
#include "host/sockets.h"
#include "monitoring.h"
#include "output/columns.h"
#include "output/text.h"
#include "records_commands.h"

namespace Zorbe::Tool {

namespace {

std::string checkTimeout(const std::string& text) {
  double seconds = 0;
  const bool number = CLI::detail::lexical_cast(text, seconds);
  const bool usable = number && seconds >= 0.001 && seconds <= 86400;  // no NaN, either
  return usable ? "" : "wants seconds between 0.001 and 86400, not " + printable(text);
}

void addQueries(CLI::App& app, Arguments& arguments) {
  withTable(withJson(addCommand(app, arguments, "show", "Show everything about one table",
                                [&](Context& context) { return show(context, arguments.table); }),
                     arguments),
            arguments);
  withTable(
      withJson(addCommand(app, arguments, "owner", "Show the process that holds the writer lock",
                          [&](Context& context) { return owner(context, arguments.table); }),
               arguments),
      arguments);
  withTable(withJson(addCommand(app, arguments, "doctor",
                                "Check for common problems, of all tables or of one",
                                [&](Context& context) {
                                  return doctor(context, arguments.tableGiven
                                                             ? std::optional(arguments.table)
                                                             : std::nullopt);
                                }),
                     arguments),
            arguments, false);
  addCommand(app, arguments, "metrics", "Print metrics in the Prometheus text format", metrics);
}

void addCommands(CLI::App& app, Arguments& arguments) {
  CLI::App* const watching = addCommand(
      app, arguments, "watch", "Log the events of a table until Ctrl-C", [&](Context& context) {
        return watch(context, {arguments.table, !arguments.filesOnly});
      });
  withTable(withJson(watching, arguments), arguments);
  watching->add_flag("--files-only", arguments.filesOnly,
                     "Do not connect to the writer, which counts each connection as a reader "
                     "that has read nothing");
  CLI::App* const probing = addCommand(
      app, arguments, "probe", "Ask the writer for an acknowledgement",
      [&](Context& context) { return probe(context, arguments.table, arguments.timeout); });
  withTable(withJson(probing, arguments), arguments);
  probing->add_option("--timeout", arguments.timeout, "How long to wait (default 1)")
      ->type_name("SECONDS")
      ->check(CLI::Validator(checkTimeout, "", ""));
  withTable(withJson(addCommand(app, arguments, "remove", "Remove a table that has no writer",
                                [&](Context& context) { return remove(context, arguments.table); }),
                     arguments),
            arguments);
}

int run(const Arguments& arguments) {
  if (arguments.rootGiven && setenv("SHMEM_ROOT", arguments.root.c_str(), 1) != 0) {
    throw std::bad_alloc();
  }
  Handler handler(arguments.debug);
  Context context{handler, arguments.json, wantsColour(), enterNamespaceOfTables()};
  return arguments.run(context);
}

// Messages about wrong use quote what was given.
int reportUse(const CLI::App& app, const CLI::ParseError& error, const Words& words) {
  const std::string unknown = unknownSubcommand(app, words);
  if (!unknown.empty()) {
    std::cerr << "zorbe: " << unknown << "\nRun with --help for more information.\n";
    return kFailure;
  }
  std::ostringstream messages;
  const int status = app.exit(error, std::cout, messages) == 0 ? kYes : kFailure;
  std::istringstream lines(messages.str());
  for (std::string line; std::getline(lines, line);) std::cerr << printable(line) << '\n';
  return status;
}

int parseAndRun(int argc, char** argv) {
  Arguments arguments;
  CLI::App app("Inspect, watch and repair shared-memory tables of this host.", "zorbe");
  app.footer(kExitStatus);
  app.require_subcommand(1);
  app.set_version_flag("--version", ZORBE_VERSION);
  addMonitoring(app, arguments);
  addQueries(app, arguments);
  addCommands(app, arguments);
  addRecordCommands(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return reportUse(app, error, Words(argv + 1, argv + argc));
  }
  return run(arguments);
}

}  // namespace

}  // namespace Zorbe::Tool

int main(int argc, char** argv) {
  static_cast<void>(setlocale(LC_CTYPE, ""));  // an unknown locale leaves "C"
  try {
    const int status = Zorbe::Tool::parseAndRun(argc, argv);
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
    return status;
  } catch (const std::exception& exception) {
    std::cerr << "zorbe: " << Zorbe::Tool::printable(exception.what()) << '\n';
    return Zorbe::Tool::kFailure;
  }
}
