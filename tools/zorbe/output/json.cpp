// SPDX-License-Identifier: MIT
#include "output/json.h"

#include <iostream>
#include <nlohmann/json.hpp>

#include "output/text.h"

namespace Zorbe::Tool {

namespace {

// An empty text is null.
Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(utf8(text));
}

}  // namespace

Json toJson(const std::optional<Writer>& writer, bool listening) {
  if (!writer) return nullptr;
  return {{"state", writer->state()},
          {"listening", listening},
          {"pids", writer->pids},
          {"executable", textOrNull(writer->executable)},
          {"cmdline", textOrNull(writer->cmdline)}};
}

Json toJson(const Table& table) {
  return {{"name", utf8(table.name)},
          {"path", utf8(table.path)},
          {"directory", table.directory.present},
          {"socket", textOrNull(table.socket.value_or(""))},
          {"writer", toJson(table.writer, table.sockets.listening)},
          {"connections", table.sockets.connections},
          {"pending", table.sockets.pending},
          {"fenix", table.fenix == 0 ? Json() : Json(table.fenix)},
          {"corrupt", table.corrupt},
          {"corruption", textOrNull(table.corruption)},
          {"storage_bytes", table.storage()},
          {"last_owner", textOrNull(table.lastOwner)}};
}

Json toJson(const Listing& directory) {
  Json files = Json::array();
  for (const Entry& entry : directory.entries) {
    files.push_back({{"name", utf8(entry.name)},
                     {"kind", entry.kind()},
                     {"ours", entry.ours},
                     {"mode", octal(entry.mode())},
                     {"size", entry.size()},
                     {"storage_bytes", entry.storage()}});
  }
  return files;
}

void print(const Json& json) {
  std::cout << withoutHarmful(json.dump()) << std::endl;
}

}  // namespace Zorbe::Tool
