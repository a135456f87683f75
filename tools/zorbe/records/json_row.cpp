// SPDX-License-Identifier: MIT
#include <algorithm>

#include "output/text.h"
#include "records/bad_input.h"
#include "records/json_text.h"
#include "records/row.h"

namespace Zorbe::Tool {

using Zorbe::Table::Kind;

namespace {

// JSON has no such numbers.
std::string nameOfNonFinite(const std::string& text) {
  const bool isNegative = text.front() == '-';
  const bool isNaN = text.find("nan") != std::string::npos;
  return std::string(isNegative ? "-" : "") + (isNaN ? "NaN" : "Infinity");
}

void appendElement(std::string& out, const Column& column, const Record& record, uint32_t element) {
  const bool isText = column.type == 'S' || column.type == 'V';
  const bool isNonFiniteNumber = isNonFinite(column, record, element);
  if (!isText && !isNonFiniteNumber) return appendScalar(out, column, record, element);
  std::string text;
  appendScalar(text, column, record, element);
  appendJsonText(out, isText ? text : nameOfNonFinite(text));
}

void appendMember(std::string& out, const Column& column, const Record& record) {
  appendJsonText(out, column.name);
  out += ':';
  if (column.count == 0) return appendElement(out, column, record, 0);
  for (uint32_t element = 0; element < column.count; ++element) {
    out += element == 0 ? '[' : ',';
    appendElement(out, column, record, element);
  }
  out += ']';
}

// A number of JSON is none of the words that stand for numbers that are not finite.
bool hasKindOf(const JsonScalar& scalar, const Column& column) {
  using ScalarKind = JsonScalar::Kind;
  switch (column.type) {
    case 'S':
    case 'V':
      return scalar.kind == ScalarKind::kText;
    case 'b':
      return scalar.kind == ScalarKind::kBoolean;
    case 'f':
      return scalar.kind == ScalarKind::kNumber || scalar.text == "NaN" || scalar.text == "-NaN" ||
             scalar.text == "Infinity" || scalar.text == "-Infinity";
    default:
      return scalar.kind == ScalarKind::kNumber;
  }
}

const char* wantedBy(const Column& column) {
  switch (column.type) {
    case 'S':
    case 'V':
      return "a text";
    case 'b':
      return "true or false";
    case 'f':
      return R"(a number, "NaN", "Infinity" or "-Infinity")";
    default:
      return "an integer";
  }
}

void storeMember(const JsonMember& member, const Column& column, Record& record) {
  const bool isArray = column.count != 0;
  if (member.isArray != isArray || member.values.size() != column.elements()) {
    throw BadInput(isArray ? "an array of " + std::to_string(column.count) + " is needed"
                           : std::string(wantedBy(column)) + " is needed");
  }
  for (uint32_t element = 0; element < column.elements(); ++element) {
    const JsonScalar& scalar = member.values[element];
    if (!hasKindOf(scalar, column)) throw BadInput(std::string(wantedBy(column)) + " is needed");
    storeScalar(scalar.text, column, record, element);
  }
}

// What a member that is no column says: {"reset":true} and the like.
bool isSaid(const JsonMember& member) {
  const bool isBoolean = !member.isArray && member.values[0].kind == JsonScalar::Kind::kBoolean;
  if (!isBoolean) throw BadInput(member.name + ": true or false is needed");
  return member.values[0].text == "true";
}

// The kind of a row whose members are not yet compared with the columns.
Kind kindOf(const std::vector<JsonMember>& members) {
  Kind kind = Kind::put;
  for (const JsonMember& member : members) {
    if (!isReserved(member.name) || !isSaid(member)) continue;
    if (member.name == "erased") kind = Kind::erased;
    if (member.name == "erased") continue;
    if (members.size() != 1) throw BadInput(member.name + ": there is more in the object");
    kind = member.name == "reset" ? Kind::reset : Kind::complete;
  }
  return kind;
}

void checkNames(const Shape& shape, const std::vector<JsonMember>& members) {
  for (const JsonMember& member : members) {
    const auto isColumn = [&](const Column& column) { return column.name == member.name; };
    const bool isKnown = member.name == "erased" ||
                         std::any_of(shape.columns.begin(), shape.columns.end(), isColumn);
    if (!isKnown) throw BadInput("there is no field " + quoted(member.name));
    const auto isSame = [&](const JsonMember& other) { return other.name == member.name; };
    if (std::count_if(members.begin(), members.end(), isSame) != 1) {
      throw BadInput("the field " + quoted(member.name) + " is there twice");
    }
  }
}

void storeColumn(const std::vector<JsonMember>& members, const Column& column, Record& record) {
  const auto isColumn = [&](const JsonMember& member) { return member.name == column.name; };
  const auto found = std::find_if(members.begin(), members.end(), isColumn);
  if (found == members.end()) throw BadInput("the field " + quoted(column.name) + " is missing");
  try {
    storeMember(*found, column, record);
  } catch (const BadInput& failure) {
    throw BadInput(printable(column.name) + ": " + failure.what());
  }
}

}  // namespace

void appendJsonLine(std::string& out, const Shape& shape, Kind kind, const Record& record) {
  if (kind == Kind::reset || kind == Kind::complete) {
    out += kind == Kind::reset ? "{\"reset\":true}\n" : "{\"complete\":true}\n";
    return;
  }
  char separator = '{';
  for (const Column& column : shape.columns) {
    if (kind == Kind::erased && !column.isKey) continue;
    out += separator;
    appendMember(out, column, record);
    separator = ',';
  }
  out += kind == Kind::erased ? ",\"erased\":true}\n" : "}\n";
}

Kind readJsonLine(const Shape& shape, std::string_view line, Record& record) {
  const std::vector<JsonMember> members = parseJsonRow(line);
  const Kind kind = kindOf(members);
  if (kind == Kind::reset || kind == Kind::complete) return kind;
  checkNames(shape, members);
  record.clear();
  for (const Column& column : shape.columns) {
    if (column.isKey || kind == Kind::put) storeColumn(members, column, record);
  }
  return kind;
}

}  // namespace Zorbe::Tool
