// SPDX-License-Identifier: MIT
#include "core/root.h"

#include <mem/mkpath.h>
#include <zorbe/exceptions.h>

#include <cerrno>
#include <iostream>

namespace Zorbe::Table {

namespace {

class FailuresToStandardError : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int level) override { return level <= 0; }
  void emit(std::ostringstream& message, int) override {
    const std::string line = message.str() + "\n";  // in one piece: other threads write, too
    std::cerr << line;
  }
};

constexpr unsigned kOpenToAll = 0777;
constexpr size_t kMaxName = 91;  // bytes of the last component in a socket's address

}  // namespace

Brask::Platform::DebugHandler& handlerOf(const Options& options) {
  static auto& fallback = *new FailuresToStandardError;  // outlives every static table
  return options.log != nullptr ? *options.log : fallback;
}

RootPath resolveRoot(const std::string& table, const Options& options) {
  const size_t slash = table.rfind('/');
  const size_t length = table.size() - (slash == std::string::npos ? 0 : slash + 1);
  if (length == 0 || length > kMaxName) {
    throw Error(
        ErrorCode::usage, table, "",
        "the last component of a table's name has 1 to " + std::to_string(kMaxName) + " bytes");
  }
  if (!options.root.empty() && options.root.front() != '/') {
    throw Error(ErrorCode::usage, table, "", "Options::root is not an absolute path");
  }
  try {
    RootPath root(handlerOf(options), table, false);
    if (!options.root.empty()) {
      root.path = options.root + (table.front() == '/' ? "" : "/") + table;
    }
    return root;
  } catch (const Brask::InvalidInitializeException& failure) {
    throw Error(ErrorCode::system, table, "", failure.what());
  }
}

Place placeOf(const std::string& table, const RootPath& root) {
  return {root.path, table, std::nullopt};
}

void failSchema(const Place& place, const Schema& found, const Schema& expected) {
  throw Error(ErrorCode::schema, place.table, "",
              "its records have another description:\n" + found.description +
                  "instead of this program's\n" + expected.description +
                  "build this program with the table's fields, or with the first of them");
}

void createDirectory(const Place& place) {
  if (Mem::mkpath(place.directory, kOpenToAll) >= 0) return;
  const int error = errno;
  if (error != EEXIST) failCall(place, "mkpath()", place.directory, error);
}

}  // namespace Zorbe::Table
