// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "c/handle.h"

namespace Zorbe::Table {

namespace {

constexpr size_t kSmallestInfo = offsetof(zorbe_info, state) + sizeof(int);

int stateOf(State state) {
  switch (state) {
    case State::waiting:
      return ZORBE_WAITING;
    case State::connected:
      return ZORBE_CONNECTED;
    case State::orphaned:
      return ZORBE_ORPHANED;
    case State::refused:
      break;
  }
  return ZORBE_REFUSED;
}

int originOf(Origin origin) {
  if (origin == Origin::local) return ZORBE_LOCAL;
  return origin == Origin::mirrored ? ZORBE_MIRRORED : ZORBE_MIRRORED_LOST;
}

void describeReader(const PulledReader& reader, zorbe_info& info) {
  const Info known = reader.info();
  info.state = stateOf(reader.state());
  info.origin = originOf(known.origin);
  info.incarnation = known.incarnation;
  info.published = known.published;
  info.position = known.position;
  info.lag = known.lag;
  info.records = known.records;
  info.published_at = known.publishedAt;
  info.origin_since = known.originSince;
}

int getInfo(TableHandle& handle, zorbe_info* out) {
  if (out == nullptr || out->size < kSmallestInfo) {
    handle.failUsage("zorbe_info: size is not set");
  }
  zorbe_info info{};
  info.size = out->size;
  if (handle.writer) {
    info.state = ZORBE_WRITING;
    info.records = handle.writer->size();
  } else {
    describeReader(*handle.reader, info);
  }
  if (const Shape* const shape = handle.findShape()) {
    info.key_bytes = shape->keyBytes();
    info.value_bytes = shape->valueBytes();
  }
  const size_t size = out->size;
  std::memset(out, 0, size);
  std::memcpy(out, &info, std::min(size, sizeof info));
  return 0;
}

}  // namespace

}  // namespace Zorbe::Table

using namespace Zorbe::Table;

int zorbe_get_info(const zorbe_table* table, zorbe_info* info) {
  return call(table, zorbe_table::kEither,
              [&](TableHandle& handle) { return getInfo(handle, info); });
}

const zorbe_field* zorbe_fields(const zorbe_table* table, size_t* n) {
  const Shape* shape = nullptr;
  static_cast<void>(call(table, zorbe_table::kEither, [&](TableHandle& handle) {
    shape = handle.findShape();
    return 0;
  }));
  const bool isKnown = shape != nullptr && !shape->fields().empty();
  if (n != nullptr) *n = isKnown ? shape->fields().size() : 0;
  return isKnown ? shape->fields().data() : nullptr;
}

int zorbe_error(const zorbe_table* table) {
  return table != nullptr ? table->failure.code() : ZORBE_E_USAGE;
}

const char* zorbe_error_text(const zorbe_table* table) {
  return table != nullptr ? table->failure.text() : "the handle is NULL";
}

int zorbe_duplicate(const zorbe_table* table, uint32_t* pid, const char** owner) {
  if (table == nullptr) return ZORBE_E_USAGE;
  if (table->kind != zorbe_table::kFailed || table->failure.code() != ZORBE_E_DUPLICATE) {
    return ZORBE_NOT_FOUND;
  }
  if (pid != nullptr) *pid = table->failure.pid();
  if (owner != nullptr) *owner = table->failure.owner();
  return 0;
}
