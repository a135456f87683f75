// SPDX-License-Identifier: MIT
#include "c/options.h"

#include <zorbe/table/error.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Zorbe::Table {

namespace {

constexpr unsigned kKnownFlags =
    ZORBE_REPLACE_SCHEMA | ZORBE_POPULATE | ZORBE_HUGE_PAGES | ZORBE_CHECK_OWNER;
constexpr unsigned kAllModes = 07777;
constexpr size_t kFirstSize = offsetof(zorbe_options, mode) + sizeof(unsigned);
constexpr double kForEver = 1e9;  // seconds

[[noreturn]] void fail(const std::string& table, const std::string& what) {
  throw Error(ErrorCode::usage, table, "", "zorbe_options: " + what);
}

bool isZero(const unsigned char* from, const unsigned char* to) {
  return std::all_of(from, to, [](unsigned char byte) { return byte == 0; });
}

size_t saturated(uint64_t number) {
  return static_cast<size_t>(std::min<uint64_t>(number, SIZE_MAX));
}

}  // namespace

zorbe_options completeOptions(const std::string& table, const zorbe_options* options) {
  zorbe_options all = ZORBE_OPTIONS_INIT;
  if (options == nullptr) return all;
  const size_t size = options->size;
  if (size < kFirstSize)
    fail(table, "size is " + std::to_string(size) + "; begin with ZORBE_OPTIONS_INIT");
  const auto* const bytes = reinterpret_cast<const unsigned char*>(options);
  if (size > sizeof all && !isZero(bytes + sizeof all, bytes + size)) {
    fail(table, "the program uses options of a later version of the library");
  }
  std::memcpy(&all, bytes, std::min(size, sizeof all));
  if ((all.flags & ~kKnownFlags) != 0) fail(table, "flags has a bit that is no zorbe_flag");
  if ((all.mode & ~kAllModes) != 0) fail(table, "mode has bits that no file has");
  return all;
}

Options optionsOf(const zorbe_options& options) {
  Options result;
  if (options.root != nullptr) result.root = options.root;
  if (options.mode != 0) result.mode = options.mode;
  if (options.records != 0) result.records = saturated(options.records);
  result.maxRecords = saturated(options.max_records);
  result.logEntries = saturated(options.log_entries);
  const auto wait = static_cast<double>(options.wait_for_lock);
  result.waitForLock = wait < 0 ? kForEver : wait / 1e9;
  result.replaceOtherSchema = (options.flags & ZORBE_REPLACE_SCHEMA) != 0;
  result.populate = (options.flags & ZORBE_POPULATE) != 0;
  result.hugePages = (options.flags & ZORBE_HUGE_PAGES) != 0;
  if ((options.flags & ZORBE_CHECK_OWNER) != 0) result.owner = options.owner;
  return result;
}

}  // namespace Zorbe::Table
