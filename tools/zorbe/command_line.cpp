// SPDX-License-Identifier: MIT
#include "command_line.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "host/spelling.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

constexpr std::size_t kSimilar = 2;  // edits

// Letters to insert, remove, replace, or exchange with their neighbours.
std::size_t edits(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const std::size_t replaced = rows[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      rows[i][j] = std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
    }
  }
  return rows[a.size()][b.size()];
}

}  // namespace

std::string unknownSubcommand(const CLI::App& app, const Words& words) {
  if (words.empty() || words.front().rfind('-', 0) == 0) return {};
  const std::string& given = words.front();
  std::size_t best = kSimilar + 1;
  std::string meant;
  for (const CLI::App* command : app.get_subcommands({})) {
    const std::size_t distance = edits(given, command->get_name());
    if (distance == 0) return {};
    if (distance < best) meant = command->get_name();
    best = std::min(best, distance);
  }
  const std::string text = "there is no subcommand " + word(given);
  return meant.empty() ? text : text + "; did you mean " + meant + "?";
}

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
