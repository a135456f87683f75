// SPDX-License-Identifier: MIT
#include "commands/header_facts.h"

#include <cinttypes>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <sstream>

#include "output/text.h"
#include "output/time.h"

namespace Zorbe::Tool {

namespace {

using Zorbe::Table::Origin;

Json timeOrNull(int64_t nanoseconds) {
  return nanoseconds == 0 ? Json() : Json(utcTime(nanoseconds));
}

// As text: 64 bits are more than the numbers of many JSON parsers hold.
std::string hex(uint64_t number) {
  char text[24];
  static_cast<void>(std::snprintf(text, sizeof text, "%016" PRIx64, number));
  return text;
}

Json readersJson(const TableHeader& header) {
  const ReaderSummary readers = summarize(header);
  return {{"connections", header.readers.connections},
          {"asleep", readers.asleep},
          {"behind", readers.behind},
          {"watchers", readers.watchers},
          {"slowest_lag_records", readers.lagRecords},
          {"slowest_lag_seconds", readers.lagSeconds}};
}

std::string records(const TableHeader& header) {
  std::string text = header.records ? std::to_string(*header.records) : "not counted";
  if (header.maxRecords != 0) text += " of at most " + std::to_string(header.maxRecords);
  return text + ", in " + std::to_string(header.slots) + " slots";
}

std::string published(const TableHeader& header) {
  std::string text = "sequence " + std::to_string(header.published);
  if (header.publishedAt == 0) return text + ", never yet";
  text += ", " + utcTime(header.publishedAt);
  const int64_t now = realTimeNow();
  if (now < header.publishedAt) return text;
  const auto age = static_cast<uint64_t>(now) - static_cast<uint64_t>(header.publishedAt);
  return text + ", " + duration(static_cast<double>(age) / 1e9) + " ago";
}

std::string origin(const TableHeader& header) {
  const std::string text = word(header.origin);
  return header.originSince == 0 ? text : text + " since " + utcTime(header.originSince);
}

std::string readers(const TableHeader& header) {
  const ReaderSummary summary = summarize(header);
  std::string text = std::to_string(summary.asleep) + " up to date, " +
                     std::to_string(summary.behind) + " behind, " +
                     std::to_string(summary.watchers) + " watching only";
  if (summary.behind == 0) return text;
  return text + "; slowest " + std::to_string(summary.lagRecords) + " changes, " +
         duration(summary.lagSeconds);
}

std::string kind(const TableHeader& header) {
  std::string text = "incarnation " + hex(header.incarnation);
  if (!header.ofThisBoot) text += ", of an earlier boot: the next writer replaces it";
  if (header.retired) text += ", replaced";
  return text;
}

}  // namespace

const char* word(Origin origin) {
  switch (origin) {
    case Origin::mirrored:
      return "mirrored";
    case Origin::mirroredLost:
      return "mirrored, connection lost";
    case Origin::local:
      break;
  }
  return "local";
}

Json toJson(const Table& table, const HeaderReading& reading) {
  if (!reading.header) {
    return reading.problem.empty() ? Json() : Json{{"problem", utf8(reading.problem)}};
  }
  const TableHeader& header = *reading.header;
  return {{"incarnation", hex(header.incarnation)},
          {"of_this_boot", header.ofThisBoot},
          {"key_bytes", header.schema.keyBytes},
          {"value_bytes", header.schema.valueBytes},
          {"fields", utf8(header.schema.description)},
          {"records", header.records ? Json(*header.records) : Json()},
          {"slots", header.slots},
          {"max_records", header.maxRecords == 0 ? Json() : Json(header.maxRecords)},
          {"published", header.published},
          {"published_at", timeOrNull(header.publishedAt)},
          {"origin", word(header.origin)},
          {"origin_since", timeOrNull(header.originSince)},
          {"readers", isServed(table) ? readersJson(header) : Json()}};
}

void addFacts(Columns& columns, const Table& table, const HeaderReading& reading) {
  const auto add = [&](const char* what, const std::string& text, Tone tone = Tone::kPlain) {
    columns.add({{what, Tone::kHeading}, {printable(text), tone}});
  };
  if (!reading.problem.empty()) add("header", reading.problem, Tone::kBad);
  if (!reading.header) return;
  const TableHeader& header = *reading.header;
  add("header", kind(header));
  add("records", records(header));
  add("published", published(header));
  add("origin", origin(header));
  if (isServed(table)) add("readers", readers(header));
}

Columns fieldsOf(const HeaderReading& reading) {
  Columns columns;
  if (!reading.header) return columns;
  columns.add({{"PART", Tone::kHeading},
               {"FIELD", Tone::kHeading},
               {"TYPE", Tone::kHeading},
               {"OFFSET", Tone::kHeading, true}});
  std::istringstream lines(reading.header->schema.description);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string part, name, type, offset;
    words >> part >> name >> type >> offset;
    columns.add({{printable(part)},
                 {printable(name)},
                 {printable(type)},
                 {printable(offset), Tone::kPlain, true}});
  }
  return columns;
}

}  // namespace Zorbe::Tool
