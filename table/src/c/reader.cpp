// SPDX-License-Identifier: MIT
#include <chrono>
#include <cstring>

#include "c/handle.h"

namespace Zorbe::Table {

namespace {

using std::chrono::nanoseconds;

zorbe_kind kindOf(Kind kind) {
  switch (kind) {
    case Kind::put:
      return ZORBE_PUT;
    case Kind::erased:
      return ZORBE_ERASED;
    case Kind::reset:
      return ZORBE_RESET;
    case Kind::complete:
      break;
  }
  return ZORBE_COMPLETE;
}

int wait(TableHandle& handle, int64_t time) {
  const nanoseconds timeout = time < 0 ? nanoseconds::max() : nanoseconds(time);
  const PulledReader::Woken woken = handle.reader->waitFor(timeout);
  static_cast<void>(handle.findShape());
  if (woken == PulledReader::Woken::kReady) return 0;
  return woken == PulledReader::Woken::kTimeout ? ZORBE_TIMEOUT : ZORBE_INTERRUPTED;
}

// The description comes first: a change that was taken must not be lost.
int next(TableHandle& handle, zorbe_change* change) {
  if (change == nullptr) handle.failUsage("the change is NULL");
  const Shape* const shape = handle.findShape();
  KeyBuffer words;
  const auto found = handle.reader->next(words, change->value);
  if (!found) return ZORBE_END;
  change->kind = kindOf(found->kind);
  change->sequence = found->sequence;
  const bool hasKey = found->kind == Kind::put || found->kind == Kind::erased;
  if (hasKey && change->key != nullptr) std::memcpy(change->key, words, shape->keyBytes());
  return 0;
}

}  // namespace

}  // namespace Zorbe::Table

using namespace Zorbe::Table;

int zorbe_wait(zorbe_table* table, int64_t nanoseconds) {
  return call(table, zorbe_table::kReader,
              [&](TableHandle& handle) { return wait(handle, nanoseconds); });
}

int zorbe_next(zorbe_table* table, zorbe_change* change) {
  return call(table, zorbe_table::kReader,
              [&](TableHandle& handle) { return next(handle, change); });
}

int zorbe_fd(const zorbe_table* table) {
  return call(table, zorbe_table::kReader, [](TableHandle& handle) { return handle.reader->fd(); });
}

int zorbe_process(zorbe_table* table) {
  return call(table, zorbe_table::kReader, [](TableHandle& handle) {
    handle.reader->process();
    static_cast<void>(handle.findShape());
    return 0;
  });
}

int zorbe_refresh(zorbe_table* table) {
  return call(table, zorbe_table::kReader, [](TableHandle& handle) {
    const bool isOther = handle.reader->refresh();
    static_cast<void>(handle.findShape());
    return isOther ? ZORBE_REPLACED : 0;
  });
}
