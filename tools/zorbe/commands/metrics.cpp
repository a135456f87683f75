// SPDX-License-Identifier: MIT
#include <functional>
#include <iostream>
#include <system_error>
#include <vector>

#include "commands/commands.h"
#include "host/table.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

using Tables = std::vector<const Table*>;

// A label value in the text exposition format.
std::string label(const std::string& bytes) {
  std::string text = "\"";
  for (const char c : utf8(bytes)) {
    if (c == '\\' || c == '"') text += '\\';
    text += c == '\n' ? std::string("\\n") : std::string(1, c);
  }
  return text + '"';
}

void head(const char* name, const char* help) {
  std::cout << "# HELP " << name << ' ' << help << "\n# TYPE " << name << " gauge\n";
}

void family(const Tables& tables, const char* name, const char* help,
            const std::function<uint64_t(const Table&)>& value) {
  head(name, help);
  for (const Table* table : tables) {
    std::cout << name << "{table=" << label(table->name) << "} " << value(*table) << '\n';
  }
}

void writers(const Tables& tables) {
  head("zorbe_writer_info", "The process that holds the writer lock; constant 1.");
  for (const Table* table : tables) {
    if (!table->writer || table->writer->pids.empty()) continue;
    std::cout << "zorbe_writer_info{table=" << label(table->name) << ",pid=\""
              << table->writer->pids.front() << "\",executable=" << label(table->writer->executable)
              << "} 1\n";
  }
}

void lastOwners(const Tables& tables) {
  head("zorbe_last_owner_info", "Content of the file last-owner; constant 1.");
  for (const Table* table : tables) {
    if (table->lastOwner.empty()) continue;
    std::cout << "zorbe_last_owner_info{table=" << label(table->name)
              << ",owner=" << label(table->lastOwner) << "} 1\n";
  }
}

void families(const Tables& tables) {
  family(tables, "zorbe_writer_up", "Whether a process holds the writer lock.",
         [](const Table& table) { return table.writer ? 1U : 0U; });
  family(tables, "zorbe_writer_stopped", "Whether the writer is stopped.",
         [](const Table& table) { return table.writer && table.writer->stopped ? 1U : 0U; });
  family(tables, "zorbe_writer_listening", "Whether the writer accepts readers.",
         [](const Table& table) { return table.sockets.listening ? 1U : 0U; });
  family(tables, "zorbe_connections", "Connections that the writer has accepted.",
         [](const Table& table) { return table.sockets.connections; });
  family(tables, "zorbe_pending_connections", "Connections that wait to be accepted.",
         [](const Table& table) { return table.sockets.pending; });
  family(tables, "zorbe_fenix_id", "The incarnation id, 0 when there is none.",
         [](const Table& table) { return table.fenix; });
  family(tables, "zorbe_corrupt", "Whether there is a corruption marker.",
         [](const Table& table) { return table.corrupt ? 1U : 0U; });
  family(tables, "zorbe_storage_bytes", "Bytes of storage of the table's files.",
         [](const Table& table) { return table.storage(); });
  writers(tables);
  lastOwners(tables);
}

}  // namespace

int metrics(Context& context) {
  const Survey found = survey(context.handler);
  const Listing& base = found.base.directory;
  if (!base.present && base.error != 0) {
    throw std::system_error(base.error, std::generic_category(), found.base.path);
  }
  const Tables tables = found.tables();
  head("zorbe_tables", "Tables below the base directory.");
  std::cout << "zorbe_tables " << tables.size() << '\n';
  families(tables);
  return kYes;
}

}  // namespace Zorbe::Tool
