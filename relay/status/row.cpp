// SPDX-License-Identifier: MIT
#include "status/row.h"

#include <map>
#include <nlohmann/json.hpp>

#include "commands/header_facts.h"
#include "host/table.h"
#include "output/text.h"
#include "output/time.h"

namespace Zorbe::Relay {

using Tool::Cell;
using Tool::Json;
using Tool::Tone;

namespace {

std::string orDash(const std::string& text) {
  return text.empty() ? "-" : Tool::printable(text);
}

Cell number(const std::optional<uint64_t>& value) {
  return {value ? std::to_string(*value) : "-", Tone::kPlain, true};
}

Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(Tool::utf8(text));
}

Json orNull(const std::optional<uint64_t>& value) {
  return value ? Json(*value) : Json();
}

Cell name(const Row& row) {
  return {Tool::word(row.served.name)};
}

Cell publisher(const Row& row) {
  return {Tool::printable(row.publisher()), row.served.isPublished() ? Tone::kGood : Tone::kBad};
}

Cell heartbeat(const Row& row) {
  const auto& silence = row.served.silence;
  return {silence ? Tool::duration(*silence) + " ago" : "never", Tone::kPlain, true};
}

Cell source(const Row& row) {
  const std::string text = row.source();
  return {text, text == "live" ? Tone::kGood : Tone::kWarning};
}

Cell records(const Row& row) {
  return number(row.served.records);
}

Cell batches(const Row& row) {
  return number(row.served.batches);
}

Cell bytes(const Row& row) {
  return number(row.served.streamBytes);
}

Cell epoch(const Row& row) {
  return {orDash(row.served.about.epoch), Tone::kPlain, true};
}

Cell host(const Row& row) {
  return {orDash(row.served.about.host)};
}

Cell pid(const Row& row) {
  return {orDash(row.served.about.pid), Tone::kPlain, true};
}

Cell version(const Row& row) {
  return {orDash(row.served.about.version)};
}

Cell here(const Row& row) {
  if (!row.here) return {"-"};
  if (!row.isWrittenHere)
    return {std::string(Tool::word(row.here->origin)) + ", no writer", Tone::kBad};
  const bool isLost = row.here->origin == Table::Origin::mirroredLost;
  return {Tool::word(row.here->origin), isLost ? Tone::kWarning : Tone::kPlain};
}

Cell since(const Row& row) {
  const bool isKnown = row.here && row.here->originSince != 0;
  return {isKnown ? Tool::utcTime(row.here->originSince) : "-"};
}

enum Field {
  kName,
  kPublisher,
  kHeartbeat,
  kSource,
  kRecords,
  kBatches,
  kBytes,
  kEpoch,
  kHost,
  kPid,
  kVersion,
  kHere,
  kSince
};

}  // namespace

std::string Row::publisher() const {
  if (!served.isUnderstood()) return "format " + served.about.format;
  return served.isPublished() ? "live" : "silent";
}

std::string Row::source() const {
  if (!served.isPublished()) return "unknown";
  return served.about.source == "live" ? "live" : "lost";
}

bool Row::isMirror() const {
  return here && here->origin != Table::Origin::local;
}

std::vector<Row> rowsOf(const std::vector<ServedTable>& tables, const std::string& as,
                        Brask::Platform::DebugHandler& handler) {
  const Tool::Survey host = Tool::survey(handler, Tool::BadBase::kReport);
  std::map<std::string, const Tool::Table*> local;
  for (const Tool::Table* table : host.tables()) local[table->name] = table;
  const Tool::HeaderReader headers;
  std::vector<Row> rows;
  for (const ServedTable& table : tables) {
    const auto found = local.find(as.empty() ? table.name : as);
    Row& row = rows.emplace_back();
    row.served = table;
    if (found == local.end()) continue;
    row.here = headers.read(*found->second).header;
    row.isWrittenHere = found->second->writer.has_value();
  }
  return rows;
}

Json toJson(const Row& row) {
  const ServedTable& served = row.served;
  const About& about = served.about;
  Json json = {{"name", Tool::utf8(served.name)},
               {"format", Tool::utf8(about.format)},
               {"publisher",
                {{"live", served.isPublished()},
                 {"heartbeat_age_seconds", served.silence ? Json(*served.silence) : Json()},
                 {"host", textOrNull(about.host)},
                 {"pid", textOrNull(about.pid)},
                 {"version", textOrNull(about.version)},
                 {"epoch", textOrNull(about.epoch)}}},
               {"source", Tool::utf8(row.source())},
               {"records", orNull(served.records)},
               {"stream",
                {{"batches", orNull(served.batches)},
                 {"bytes", orNull(served.streamBytes)},
                 {"last", textOrNull(about.last)}}},
               {"here", nullptr}};
  if (!row.here) return json;
  const int64_t since = row.here->originSince;
  json["here"] = {{"writer", row.isWrittenHere},
                  {"origin", Tool::word(row.here->origin)},
                  {"origin_since", since == 0 ? Json() : Json(Tool::utcTime(since))}};
  return json;
}

const std::vector<RowColumn>& rowColumns() {
  static const std::vector<RowColumn> kColumns{
      {"TABLE", false, name},    {"PUBLISHER", false, publisher}, {"HEARTBEAT", true, heartbeat},
      {"SOURCE", false, source}, {"RECORDS", true, records},      {"BATCHES", true, batches},
      {"BYTES", true, bytes},    {"EPOCH", true, epoch},          {"HOST", false, host},
      {"PID", true, pid},        {"VERSION", false, version},     {"HERE", false, here},
      {"SINCE", false, since}};
  return kColumns;
}

const std::vector<std::size_t>& expendableColumns() {
  static const std::vector<std::size_t> kExpendable{kVersion, kEpoch,   kPid,     kSince,
                                                    kBytes,   kBatches, kRecords, kHeartbeat,
                                                    kHost,    kHere,    kSource};
  return kExpendable;
}

}  // namespace Zorbe::Relay
