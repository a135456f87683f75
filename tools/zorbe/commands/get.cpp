// SPDX-License-Identifier: MIT
#include <iostream>
#include <stdexcept>

#include "commands/record_commands.h"
#include "output/text.h"
#include "records/bad_input.h"
#include "records/row.h"
#include "records/source.h"

namespace Zorbe::Tool {

namespace {

int say(const std::string& what) {
  const std::string text = "zorbe: " + what + "\n";
  std::cerr << text;
  return kNo;
}

void checkCount(const Shape& shape, size_t given) {
  size_t wanted = 0;
  for (const Column& column : shape.columns) wanted += column.isKey ? column.elements() : 0;
  if (given == wanted) return;
  throw std::runtime_error("a key has " + std::to_string(wanted) + " elements, and " +
                           std::to_string(given) + " are given");
}

}  // namespace

int get(Context& context, const std::string& table, const std::vector<std::string>& key) {
  const Source source = openSource(context.handler, table);
  if (!source.reader) return say(source.problem);
  const Shape shape = shapeOf(source.reader->schema());
  checkCount(shape, key.size());
  Record record(shape.schema);
  try {
    readKey(shape, key, record);
  } catch (const BadInput& failure) {
    return say("no such key in table " + word(table) + ": " + failure.what());
  }
  if (!source.reader->get(record.key.data(), record.value.data())) {
    return say("no such key in table " + word(table) + ": " +
               printable(Zorbe::Table::printKey(shape.schema, record.key.data())));
  }
  std::string row;
  if (context.json) {
    appendJsonLine(row, shape, Zorbe::Table::Kind::put, record);
  } else {
    appendCsvLine(row, elementsOf(shape, record));
  }
  std::cout << row;
  return kYes;
}

}  // namespace Zorbe::Tool
