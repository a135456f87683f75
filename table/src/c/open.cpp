// SPDX-License-Identifier: MIT
#include <new>

#include "c/handle.h"
#include "core/root.h"
#include "memory/table_reader.h"

namespace Zorbe::Table {

namespace {

// Constant-initialised: there when nothing can be allocated.
zorbe_table outOfMemory(ZORBE_E_NO_MEMORY, "out of memory");

// As found: in the first table in this place that is complete.
Schema schemaInPlace(const std::string& name, const Options& options) {
  ReaderOptions place;
  place.place = placeOf(name, resolveRoot(name, options));
  const std::unique_ptr<TableReader> table = TableReader::open(place);
  return table ? table->schema() : Schema{};
}

Options useOptions(TableHandle& handle, const zorbe_options& given) {
  Options options = optionsOf(given);
  if (given.log != nullptr) handle.log = std::make_unique<CallbackLog>(given);
  options.log = handle.log.get();
  return options;
}

int openWriter(TableHandle& handle, const zorbe_field* fields, size_t count,
               const zorbe_options* given) {
  const zorbe_options all = completeOptions(handle.name, given);
  const Options options = useOptions(handle, all);
  const bool isAsFound = count == 0;
  if (fields == nullptr && count != 0) handle.failUsage("there are no fields");
  const Schema schema = isAsFound
                            ? schemaInPlace(handle.name, options)
                            : schemaOf(handle.name, fields, count, all.key_bytes, all.value_bytes);
  if (schema.keyBytes == 0) {
    return handle.failure.set(ZORBE_E_NO_TABLE, "table '" + handle.name +
                                                    "': there is none to take the fields from; "
                                                    "open it with fields");
  }
  handle.shape = std::make_unique<const Shape>(schema);
  handle.writer = std::make_unique<ServedWriter>(handle.name, options, schema);
  handle.kind = zorbe_table::kWriter;
  return 0;
}

int openReader(TableHandle& handle, const zorbe_options* given) {
  const Options options = useOptions(handle, completeOptions(handle.name, given));
  handle.reader = std::make_unique<PulledReader>(handle.name, options, Schema{});
  handle.view.emplace(handle.reader->view());
  static_cast<void>(handle.findShape());
  handle.kind = zorbe_table::kReader;
  return 0;
}

// The handle is the caller's as soon as it exists.
template <class Act>
int open(zorbe_table** out, const char* name, Act act) noexcept {
  if (out == nullptr) return ZORBE_E_USAGE;
  auto* const handle = new (std::nothrow) TableHandle;
  *out = handle != nullptr ? handle : &outOfMemory;
  if (handle == nullptr) return ZORBE_E_NO_MEMORY;
  try {
    if (name == nullptr) handle->failUsage("the table has no name");
    handle->name = name;
    return act(*handle);
  } catch (...) {
    return handle->failure.setCurrent();
  }
}

}  // namespace

int refuse(const zorbe_table* table) {
  if (table == nullptr) return ZORBE_E_USAGE;
  if (table->kind == zorbe_table::kFailed) return ZORBE_E_CLOSED;
  auto& failure = const_cast<zorbe_table*>(table)->failure;
  const bool isReader = table->kind == zorbe_table::kReader;
  return failure.set(ZORBE_E_USAGE, isReader ? "the handle is a reader, which does not write"
                                             : "the handle is a writer, which follows no changes");
}

}  // namespace Zorbe::Table

using namespace Zorbe::Table;

int zorbe_writer_open(zorbe_table** out, const char* name, const zorbe_field* fields, size_t n,
                      const zorbe_options* options) {
  return open(out, name,
              [&](TableHandle& handle) { return openWriter(handle, fields, n, options); });
}

int zorbe_reader_open(zorbe_table** out, const char* name, const zorbe_options* options) {
  return open(out, name, [&](TableHandle& handle) { return openReader(handle, options); });
}

void zorbe_close(zorbe_table* table) {
  if (table != &outOfMemory) delete static_cast<TableHandle*>(table);
}
