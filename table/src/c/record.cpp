// SPDX-License-Identifier: MIT
#include "c/record.h"

#include <string>

namespace Zorbe::Table {

namespace {

[[noreturn]] void fail(const TableHandle& handle, const char* what, const void* bytes, size_t size,
                       const std::string& wanted) {
  const std::string found = bytes == nullptr ? "NULL" : std::to_string(size) + " bytes";
  handle.failUsage(std::string(what) + " is " + found + " instead of " + wanted + " bytes");
}

}  // namespace

void failKey(const TableHandle& handle, const void* key, size_t size) {
  fail(handle, "the key", key, size, std::to_string(handle.shape->keyBytes()));
}

void failValue(const TableHandle& handle, const void* value, size_t size) {
  fail(handle, "the value", value, size, std::to_string(handle.shape->valueBytes()));
}

}  // namespace Zorbe::Table
