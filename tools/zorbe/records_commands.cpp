// SPDX-License-Identifier: MIT
#include "records_commands.h"

#include <map>
#include <memory>

#include "commands/record_commands.h"

namespace Zorbe::Tool {

namespace {

void addGet(CLI::App& app, Arguments& arguments) {
  const auto key = std::make_shared<std::vector<std::string>>();
  CLI::App* const command = addCommand(
      app, arguments, "get", "Print one record of a table, as a row of CSV",
      [&arguments, key](Context& context) { return get(context, arguments.table, *key); });
  withTable(withJson(command, arguments), arguments);
  command->add_option("KEY", *key, "The key; of a key with several elements, each of them")
      ->required()
      ->type_name("");
}

void addDump(CLI::App& app, Arguments& arguments) {
  const auto options = std::make_shared<DumpOptions>();
  CLI::App* const command = addCommand(app, arguments, "dump", "Print all records of a table",
                                       [&arguments, options](Context& context) {
                                         options->table = arguments.table;
                                         return dump(context, *options);
                                       });
  withTable(withJson(command, arguments), arguments);
  command->add_flag("--csv", options->csv, "CSV instead of text")->excludes("--json");
  command->add_flag("!--unsorted", options->sorted,
                    "In any order, each row as it is read, instead of by the key");
}

void addTail(CLI::App& app, Arguments& arguments) {
  const auto options = std::make_shared<TailOptions>();
  CLI::App* const command = addCommand(
      app, arguments, "tail", "Print all records of a table, and then its changes until Ctrl-C",
      [&arguments, options](Context& context) {
        options->table = arguments.table;
        return tail(context, *options);
      });
  withTable(withJson(command, arguments), arguments);
  command->add_flag("--new", options->onlyNew, "Leave out the records that are there already");
  command->add_flag("--wait", options->wait, "Wait for a table that is not there yet");
}

void addFeed(CLI::App& app, Arguments& arguments) {
  const auto options = std::make_shared<FeedOptions>();
  CLI::App* const command =
      addCommand(app, arguments, "feed", "Write a table from rows on standard input",
                 [&arguments, options](Context& context) {
                   options->table = arguments.table;
                   return feed(context, *options);
                 });
  withTable(command, arguments);
  const auto addFields = [&](const char* name, std::vector<std::string>& fields,
                             const char* about) {
    command->add_option(name, fields, about)
        ->required()
        ->type_name("NAME:TYPE")
        ->type_size(1)
        ->allow_extra_args(false);
  };
  addFields("--key", options->key, "A field of the key, such as symbol:S15; may be repeated");
  addFields("--field", options->value, "A field of the record, such as price:i8; may be repeated");
  const std::map<std::string, Format> formats{{"csv", Format::kCsv}, {"json", Format::kJson}};
  command->add_option("--format", options->format, "csv (default) or json, one object per line")
      ->type_name("FORMAT")
      ->transform(CLI::CheckedTransformer(formats).description(""));
  command->add_flag("--stay", options->stay,
                    "Go on serving readers after the end of the input, until Ctrl-C");
}

}  // namespace

void addRecordCommands(CLI::App& app, Arguments& arguments) {
  addGet(app, arguments);
  addDump(app, arguments);
  addTail(app, arguments);
  addFeed(app, arguments);
}

}  // namespace Zorbe::Tool
