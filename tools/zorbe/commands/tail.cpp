// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/table/core.h>
#include <zorbe/table/error.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "commands/record_commands.h"
#include "output/text.h"
#include "records/row.h"
#include "records/source.h"
#include "records/streams.h"

namespace Zorbe::Tool {

using Zorbe::Table::Kind;
using Zorbe::Table::ReaderCore;

namespace {

class Follow {
 public:
  Follow(Brask::Linux::EventLoop& loop, Outlet& outlet, ReaderCore& reader, const Shape& shape,
         bool json)
      : loop_(loop),
        outlet_(outlet),
        reader_(reader),
        shape_(shape),
        json_(json),
        record_(shape.schema) {}

  /// Does not print before the first transfer of all records is complete.
  void skipFirstTransfer() { isSkipping_ = true; }

  /// Until a signal comes, or nobody reads the output any more.
  void run() {
    while (deliver() && outlet_.wait(loop_.fd(), -1)) loop_.turn(0);
  }

 private:
  static constexpr size_t kBlock = size_t{64} * 1024;
  static constexpr int kChangesOfTurn = 1024;  // a fast writer leaves no pause to turn in

  // Prints what there is, and writes it when there is no more.
  bool deliver() {
    int changes = 0;
    while (const auto change = next()) {
      if (isSkipping_) {
        isSkipping_ = change->kind != Kind::complete;
      } else {
        append(change->kind);
      }
      const bool isTurnDue = ++changes % kChangesOfTurn == 0;
      if (text_.size() >= kBlock && !flush()) return false;
      if (isTurnDue && !outlet_.wait(-1, 0)) return false;
      if (isTurnDue) loop_.turn(0);
    }
    return flush();
  }

  // A table that cannot be read is reported, and tried again by the reader itself. One with other
  // columns is for another command.
  std::optional<ReaderCore::Change> next() {
    try {
      return reader_.next(record_.key.data(), record_.value.data());
    } catch (const Zorbe::Table::Error& failure) {
      if (failure.code() == Zorbe::Table::ErrorCode::schema) {
        throw std::runtime_error("table '" + failure.table() +
                                 "' was replaced by one with other columns");
      }
      report(failure);
    } catch (const Brask::Exception& failure) {
      report(failure);
    }
    return std::nullopt;
  }

  static void report(const std::exception& failure) {
    const std::string text = "zorbe: " + printable(failure.what()) + "\n";
    std::cerr << text;
  }

  void append(Kind kind) {
    if (json_) return appendJsonLine(text_, shape_, kind, record_);
    appendTextLine(text_, shape_, kind, record_);
  }

  bool flush() {
    const bool isOpen = outlet_.write(text_);
    text_.clear();
    return isOpen;
  }

  Brask::Linux::EventLoop& loop_;
  Outlet& outlet_;
  ReaderCore& reader_;
  const Shape& shape_;
  bool json_;
  Record record_;
  std::string text_;
  bool isSkipping_ = false;
};

// With other members of these names, {"reset":true} would be ambiguous.
void refuseReservedNames(const Shape& shape) {
  for (const Column& column : shape.columns) {
    if (!isReserved(column.name)) continue;
    throw std::runtime_error("the field '" + column.name +
                             "' cannot be shown as JSON, where the name has another meaning");
  }
}

// Nothing in `reader` when the wait ended without a table.
Source awaitSource(Context& context, const TailOptions& options, Outlet& outlet) {
  constexpr int kRetryMilliseconds = 100;
  Source source = openSource(context.handler, options.table);
  while (!source.reader && options.wait && outlet.wait(-1, kRetryMilliseconds)) {
    source = openSource(context.handler, options.table);
  }
  if (options.wait) source.problem.clear();
  return source;
}

}  // namespace

int tail(Context& context, const TailOptions& options) {
  occupyStandardDescriptors();
  const StopSignals stop;
  Outlet outlet(stop);
  const Source source = awaitSource(context, options, outlet);
  if (!source.reader) {
    if (!source.problem.empty()) std::cerr << "zorbe: " + source.problem + "\n";
    return options.wait ? kYes : kNo;
  }
  const Shape shape = shapeOf(source.reader->schema());
  if (context.json) refuseReservedNames(shape);
  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler messages(std::cerr, context.handler.maxLevel(), {200, 50});
  Zorbe::Table::Options reading;
  reading.log = &messages;
  ReaderCore reader(options.table, reading, shape.schema);
  Follow follow(loop, outlet, reader, shape, context.json);
  if (options.onlyNew) follow.skipFirstTransfer();
  follow.run();
  return kYes;
}

}  // namespace Zorbe::Tool
