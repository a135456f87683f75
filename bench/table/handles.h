// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table.h>

#include <string>
#include <vector>

#include "harness/results.h"
#include "table/slots.h"
#include "table/store.h"

namespace Bench {

/// Reads random records of a table by their handles, and copies the same bytes of the same files
/// without looking at anything else.
class Handles {
 public:
  Handles(const std::string& directory, uint64_t records);

  void readAll(size_t count);
  void copyAll(size_t count);

 private:
  size_t from(size_t count);

  using Handle = Zorbe::Table::Handle<uint64_t>;

  Zorbe::Table::Reader<uint64_t, Record> reader_;
  MappedSlots slots_;
  std::vector<Handle> handles_;
  std::vector<const char*> values_;
  size_t position_ = 0;
};

/// What MAP_POPULATE and MADV_HUGEPAGE bring to a large table.
void measureMapping(Results& results);

}  // namespace Bench
