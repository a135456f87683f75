// SPDX-License-Identifier: MIT
#include <functional>
#include <iostream>
#include <optional>
#include <vector>

#include "commands/commands.h"
#include "host/process_start.h"
#include "host/table_header.h"
#include "output/metrics.h"

namespace Zorbe::Tool {

namespace {

struct Sample {
  const Table* table;
  std::optional<TableHeader> header;
};
using Samples = std::vector<Sample>;

void family(const Samples& samples, const char* name, const char* type, const char* help,
            const std::function<MetricValue(const Sample&)>& value) {
  printHead(name, type, help);
  for (const Sample& sample : samples) {
    const MetricValue number = value(sample);
    if (!number) continue;
    std::cout << name << "{table=" << label(sample.table->name) << "} " << *number << '\n';
  }
}

void gauge(const Samples& samples, const char* name, const char* help,
           const std::function<uint64_t(const Table&)>& value) {
  family(samples, name, "gauge", help,
         [&](const Sample& sample) { return std::to_string(value(*sample.table)); });
}

// Only for tables whose header can be read.
void ofHeader(const Samples& samples, const char* name, const char* type, const char* help,
              const std::function<MetricValue(const TableHeader&)>& value) {
  family(samples, name, type, help, [&](const Sample& sample) {
    return sample.header ? value(*sample.header) : std::nullopt;
  });
}

// Only for tables whose writer is there, and serves readers.
void ofServed(const Samples& samples, const char* name, const char* type, const char* help,
              const std::function<std::string(const TableHeader&)>& value) {
  family(samples, name, type, help, [&](const Sample& sample) -> MetricValue {
    if (!sample.header || !isServed(*sample.table)) return std::nullopt;
    return value(*sample.header);
  });
}

void ofReaders(const Samples& samples, const char* name, const char* help,
               const std::function<std::string(const ReaderSummary&)>& value) {
  ofServed(samples, name, "gauge", help,
           [&](const TableHeader& header) { return value(summarize(header)); });
}

void writerInfo(const Samples& samples) {
  printHead("zorbe_writer_info", "gauge", "The process that holds the writer lock; constant 1.");
  for (const auto& [table, header] : samples) {
    if (!table->writer || table->writer->pids.empty()) continue;
    std::cout << "zorbe_writer_info{table=" << label(table->name) << ",pid=\""
              << table->writer->pids.front() << "\",executable=" << label(table->writer->executable)
              << "} 1\n";
  }
}

void lastOwners(const Samples& samples) {
  printHead("zorbe_last_owner_info", "gauge", "Content of the file last-owner; constant 1.");
  for (const auto& [table, header] : samples) {
    if (table->lastOwner.empty()) continue;
    std::cout << "zorbe_last_owner_info{table=" << label(table->name)
              << ",owner=" << label(table->lastOwner) << "} 1\n";
  }
}

void writerFamilies(const Samples& samples) {
  gauge(samples, "zorbe_writer_up", "Whether a process holds the writer lock.",
        [](const Table& table) { return table.writer ? 1U : 0U; });
  gauge(samples, "zorbe_writers", "Writer locks that are held; more than one is an error.",
        [](const Table& table) { return table.otherWriters.size() + (table.writer ? 1U : 0U); });
  gauge(samples, "zorbe_writer_stopped", "Whether the writer is stopped.",
        [](const Table& table) { return table.writer && table.writer->stopped ? 1U : 0U; });
  gauge(samples, "zorbe_writer_listening", "Whether the writer accepts readers.",
        [](const Table& table) { return table.sockets.listening ? 1U : 0U; });
  StartTimes starts;
  family(samples, "zorbe_writer_start_timestamp_seconds", "gauge",
         "When the process that holds the writer lock was started.",
         [&](const Sample& sample) -> MetricValue {
           const std::optional<Writer>& writer = sample.table->writer;
           if (!writer || writer->pids.empty()) return std::nullopt;
           const std::optional<double> start = starts.of(writer->pids.front());
           return start ? MetricValue(decimal(*start, 2)) : std::nullopt;
         });
  writerInfo(samples);
}

void tableFamilies(const Samples& samples) {
  gauge(samples, "zorbe_connections", "Connections that the writer has accepted.",
        [](const Table& table) { return table.sockets.connections; });
  gauge(samples, "zorbe_pending_connections", "Connections that wait to be accepted.",
        [](const Table& table) { return table.sockets.pending; });
  gauge(samples, "zorbe_fenix_id", "The incarnation id, 0 when there is none.",
        [](const Table& table) { return table.fenix; });
  gauge(samples, "zorbe_corrupt", "Whether there is a corruption marker.",
        [](const Table& table) { return table.corrupt ? 1U : 0U; });
  gauge(samples, "zorbe_storage_bytes", "Bytes of storage of the table's files.",
        [](const Table& table) { return table.storage(); });
  lastOwners(samples);
}

void headerFamilies(const Samples& samples) {
  ofHeader(samples, "zorbe_changes_total", "counter",
           "Changes that were published, continued by each next writer of the same files.",
           [](const TableHeader& header) { return std::to_string(header.published); });
  ofHeader(samples, "zorbe_takeovers_total", "counter",
           "Writers that continued the table of one before.",
           [](const TableHeader& header) { return std::to_string(header.takeovers); });
  ofHeader(samples, "zorbe_records", "gauge", "Live records.", [](const TableHeader& header) {
    return header.records ? MetricValue(std::to_string(*header.records)) : std::nullopt;
  });
  ofHeader(samples, "zorbe_capacity_records", "gauge",
           "The most records, of a table that has a limit.", [](const TableHeader& header) {
             return header.maxRecords == 0 ? std::nullopt
                                           : MetricValue(std::to_string(header.maxRecords));
           });
  ofHeader(samples, "zorbe_last_publish_timestamp_seconds", "gauge",
           "When a change was published last.",
           [](const TableHeader& header) { return seconds(header.publishedAt); });
}

void readerFamilies(const Samples& samples) {
  ofServed(samples, "zorbe_kicks_total", "counter", "Kicks that this writer has sent.",
           [](const TableHeader& header) { return std::to_string(header.readers.kicks); });
  ofReaders(samples, "zorbe_readers_behind", "Readers that have not reported what is published.",
            [](const ReaderSummary& readers) { return std::to_string(readers.behind); });
  ofReaders(samples, "zorbe_slowest_reader_lag_records",
            "Changes that the slowest reader has not reported.",
            [](const ReaderSummary& readers) { return std::to_string(readers.lagRecords); });
  ofReaders(samples, "zorbe_slowest_reader_lag_seconds",
            "How long ago the slowest reader that is behind was found at its last report.",
            [](const ReaderSummary& readers) { return decimal(readers.lagSeconds, 3); });
}

}  // namespace

int metrics(Context& context) {
  const Survey found = survey(context.handler);
  const HeaderReader headers;
  Samples samples;
  for (const Table* table : found.tables()) {
    samples.push_back({table, headers.read(*table).header});
  }
  printHead("zorbe_build_info", "gauge", "The version of the command; constant 1.");
  std::cout << "zorbe_build_info{version=" << label(ZORBE_VERSION) << "} 1\n";
  printHead("zorbe_tables", "gauge", "Tables below the base directory.");
  std::cout << "zorbe_tables " << samples.size() << '\n';
  writerFamilies(samples);
  tableFamilies(samples);
  headerFamilies(samples);
  readerFamilies(samples);
  return kYes;
}

}  // namespace Zorbe::Tool
