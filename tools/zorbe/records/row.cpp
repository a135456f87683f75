// SPDX-License-Identifier: MIT
#include "records/row.h"

#include "output/text.h"
#include "records/bad_input.h"
#include "records/csv.h"

namespace Zorbe::Tool {

namespace {

// Calls `use` with each element of the columns, in the order of a row.
template <class Use>
void forEachElement(const std::vector<Column>& columns, Use use) {
  for (const Column& column : columns) {
    for (uint32_t element = 0; element < column.elements(); ++element) use(column, element);
  }
}

std::string nameOf(const Column& column, uint32_t element) {
  return column.count == 0 ? column.name : column.name + "[" + std::to_string(element) + "]";
}

// Stores the texts of the columns for which `isWanted`. The first message is that of the first
// column that does not fit.
template <class IsWanted>
void storeTexts(const Shape& shape, const std::vector<std::string>& texts, Record& record,
                IsWanted isWanted) {
  size_t wanted = 0;
  forEachElement(shape.columns, [&](const Column& column, uint32_t) {
    if (isWanted(column)) ++wanted;
  });
  if (texts.size() != wanted) {
    throw BadInput("the number of fields is " + std::to_string(texts.size()) + " and not " +
                   std::to_string(wanted));
  }
  record.clear();
  size_t next = 0;
  forEachElement(shape.columns, [&](const Column& column, uint32_t element) {
    if (!isWanted(column)) return;
    try {
      storeScalar(texts[next++], column, record, element);
    } catch (const BadInput& failure) {
      throw BadInput(printable(nameOf(column, element)) + ": " + failure.what());
    }
  });
}

}  // namespace

std::vector<std::string> csvNames(const Shape& shape) {
  std::vector<std::string> names;
  forEachElement(shape.columns, [&](const Column& column, uint32_t element) {
    names.push_back(nameOf(column, element));
  });
  return names;
}

void appendCsvLine(std::string& out, const std::vector<std::string>& fields) {
  const char* separator = "";
  for (const std::string& field : fields) {
    out += separator;
    appendCsvField(out, field);
    separator = ",";
  }
  out += '\n';
}

std::vector<std::string> elementsOf(const Shape& shape, const Record& record) {
  std::vector<std::string> elements;
  forEachElement(shape.columns, [&](const Column& column, uint32_t element) {
    appendScalar(elements.emplace_back(), column, record, element);
  });
  return elements;
}

void readCsvRow(const Shape& shape, const std::vector<std::string>& fields, Record& record) {
  storeTexts(shape, fields, record, [](const Column&) { return true; });
}

void readKey(const Shape& shape, const std::vector<std::string>& texts, Record& record) {
  storeTexts(shape, texts, record, [](const Column& column) { return column.isKey; });
}

void appendTextLine(std::string& out, const Shape& shape, Zorbe::Table::Kind kind,
                    const Record& record) {
  using Zorbe::Table::Kind;
  const bool isPut = kind == Kind::put;
  if (kind == Kind::reset || kind == Kind::complete) {
    out += kind == Kind::reset ? "reset\n" : "complete\n";
    return;
  }
  out += isPut ? "put    " : "erased ";
  std::string text;
  forEachElement(shape.columns, [&](const Column& column, uint32_t element) {
    if (!isPut && !column.isKey) return;
    text.clear();
    appendScalar(text, column, record, element);
    out += " " + printable(nameOf(column, element)) + "=" + word(text);
  });
  out += '\n';
}

bool isKeyLess(const Shape& shape, const Record& a, const Record& b) {
  for (const Column& column : shape.columns) {
    if (!column.isKey) continue;
    for (uint32_t element = 0; element < column.elements(); ++element) {
      const int order = compareScalars(column, a, b, element);
      if (order != 0) return order < 0;
    }
  }
  return false;
}

}  // namespace Zorbe::Tool
