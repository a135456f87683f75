// SPDX-License-Identifier: MIT
#include "output/metrics.h"

#include <functional>
#include <iostream>

#include "status/status.h"

namespace Zorbe::Relay {

namespace {

using Rows = std::vector<Row>;
using Tool::label;
using Tool::MetricValue;
using Tool::printHead;

void family(const Rows& rows, const char* name, const char* help,
            const std::function<MetricValue(const Row&)>& value) {
  printHead(name, "gauge", help);
  for (const Row& row : rows) {
    const MetricValue number = value(row);
    if (!number) continue;
    std::cout << name << "{table=" << label(row.served.name) << "} " << *number << '\n';
  }
}

MetricValue orNone(const std::optional<uint64_t>& number) {
  return number ? MetricValue(std::to_string(*number)) : std::nullopt;
}

void publisherFamilies(const Rows& rows) {
  family(rows, "zorbe_relay_publisher_up", "Whether the publisher of the table is there.",
         [](const Row& row) { return row.served.isPublished() ? "1" : "0"; });
  family(rows, "zorbe_relay_source_up",
         "Whether the publisher's table has a writer; absent while the publisher is silent.",
         [](const Row& row) -> MetricValue {
           if (!row.served.isPublished()) return std::nullopt;
           return row.source() == "live" ? "1" : "0";
         });
  family(rows, "zorbe_relay_heartbeat_age_seconds", "How long ago the publisher was there last.",
         [](const Row& row) -> MetricValue {
           if (!row.served.silence) return std::nullopt;
           return Tool::decimal(*row.served.silence, 3);
         });
  printHead("zorbe_relay_publisher_info", "gauge", "The publisher of the table; constant 1.");
  for (const Row& row : rows) {
    const About& about = row.served.about;
    std::cout << "zorbe_relay_publisher_info{table=" << label(row.served.name)
              << ",host=" << label(about.host) << ",pid=" << label(about.pid)
              << ",version=" << label(about.version) << "} 1\n";
  }
}

void serverFamilies(const Rows& rows) {
  family(rows, "zorbe_relay_records", "Records that the server has.",
         [](const Row& row) { return orNone(row.served.records); });
  family(rows, "zorbe_relay_stream_batches", "Batches of changes that the server keeps.",
         [](const Row& row) { return orNone(row.served.batches); });
  family(rows, "zorbe_relay_stream_bytes", "Memory of the server that they take.",
         [](const Row& row) { return orNone(row.served.streamBytes); });
}

void localFamilies(const Rows& rows) {
  family(rows, "zorbe_relay_mirror_up", "Whether a mirror process writes this host's copy.",
         [](const Row& row) -> MetricValue {
           if (!row.isMirror()) return std::nullopt;
           return row.isWrittenHere ? "1" : "0";
         });
  family(rows, "zorbe_relay_mirror_connected",
         "Whether it follows a source that is there, as it has seen it last.",
         [](const Row& row) -> MetricValue {
           if (!row.isMirror()) return std::nullopt;
           return row.here->origin == Table::Origin::mirrored ? "1" : "0";
         });
  family(rows, "zorbe_relay_mirror_since_timestamp_seconds", "Since when that is so.",
         [](const Row& row) {
           return row.isMirror() ? Tool::seconds(row.here->originSince) : std::nullopt;
         });
}

}  // namespace

void printMetrics(const std::vector<Row>& rows) {
  printHead("zorbe_relay_build_info", "gauge", "The version of the relay; constant 1.");
  std::cout << "zorbe_relay_build_info{version=" << label(ZORBE_VERSION) << "} 1\n";
  printHead("zorbe_relay_tables", "gauge", "Tables that the server has.");
  std::cout << "zorbe_relay_tables " << rows.size() << '\n';
  publisherFamilies(rows);
  serverFamilies(rows);
  localFamilies(rows);
}

}  // namespace Zorbe::Relay
