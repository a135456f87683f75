// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <poll.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/table/core.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "commands/record_commands.h"
#include "output/text.h"
#include "records/bad_input.h"
#include "records/source.h"
#include "records/streams.h"

namespace Zorbe::Tool {

using Zorbe::Table::WriterCore;

namespace {

class Feed {
 public:
  Feed(Brask::Linux::EventLoop& loop, const StopSignals& stop, WriterCore& writer,
       Importer& importer)
      : loop_(loop), stop_(stop), writer_(writer), importer_(importer) {}

  /// Until the end of the input, or of a signal with `stay`.
  void run(bool stay) {
    while (isOpen_ || stay) {
      pollfd fds[] = {{stop_.fd(), POLLIN, 0},
                      {loop_.fd(), POLLIN, 0},
                      {isOpen_ ? STDIN_FILENO : -1, POLLIN, 0}};
      const int ready = ::poll(fds, 3, -1);
      const int error = errno;
      if (ready < 0 && error != EINTR) fail(error, "poll()");
      if (ready < 0) continue;
      if (fds[0].revents != 0) return;
      if (fds[1].revents != 0) loop_.turn(0);
      if (fds[2].revents != 0) read();
    }
  }

 private:
  [[noreturn]] static void fail(int error, const char* what) {
    throw std::system_error(error, std::generic_category(), what);
  }

  // What has arrived is one batch.
  void read() {
    char input[64 * 1024];
    const ssize_t length = ::read(STDIN_FILENO, input, sizeof input);
    const int error = errno;
    if (length < 0 && (error == EINTR || error == EAGAIN)) return;
    if (length < 0) fail(error, "cannot read standard input");
    if (length > 0) importer_.add({input, static_cast<size_t>(length)});
    if (length == 0) importer_.end();
    isOpen_ = length > 0;
    writer_.publish();
  }

  Brask::Linux::EventLoop& loop_;
  const StopSignals& stop_;
  WriterCore& writer_;
  Importer& importer_;
  bool isOpen_ = true;
};

// Shows nothing until the command is the writer: why it cannot be, it says itself.
class WriterMessages : public Brask::Platform::DebugHandler {
 public:
  explicit WriterMessages(int maxLevel) : messages_(std::cerr, maxLevel, {200, 50}) {}

  void show() { isShown_ = true; }
  bool isEnabled(int level) override { return isShown_ && messages_.isEnabled(level); }
  void emit(std::ostringstream& message, int level) override { messages_.emit(message, level); }

 private:
  Brask::Linux::StreamDebugHandler messages_;
  bool isShown_ = false;
};

[[noreturn]] void failDuplicate(const std::string& table, const DuplicateWriterException& refusal) {
  std::string process = "another process";
  if (refusal.pid != 0) process = "process " + std::to_string(refusal.pid) + ", " + refusal.owner;
  throw std::runtime_error("table '" + table + "' has a writer: " + process);
}

std::unique_ptr<WriterCore> becomeWriter(const std::string& table, WriterMessages& messages,
                                         const Shape& shape) {
  Zorbe::Table::Options writing;
  writing.log = &messages;
  try {
    auto writer = std::make_unique<WriterCore>(table, writing, shape.schema);
    messages.show();
    return writer;
  } catch (const DuplicateWriterException& refusal) {
    failDuplicate(table, refusal);
  }
}

// The table that is there. What damage a writer can repair, and what it has to replace, the library
// decides.
Source sourceOf(Context& context, const std::string& table) {
  refuseOtherKind(context.handler, table);
  try {
    return openSource(context.handler, table);
  } catch (const CorruptionDetectedException&) {
    return {};
  }
}

// A table that is there keeps its layout, which a program with a struct of its own has chosen, if
// the rows of both are the same.
Shape shapeOfTable(Context& context, const FeedOptions& options) {
  Shape wanted = shapeFrom(options.key, options.value);
  const Source source = sourceOf(context, options.table);
  if (!source.reader) return wanted;
  Shape found = shapeOf(source.reader->schema());
  if (hasSameColumns(found, wanted)) return found;
  throw std::runtime_error("table '" + options.table + "' has other columns: " + optionsOf(found) +
                           "; use these, or remove the table");
}

}  // namespace

int feed(Context& context, const FeedOptions& options) {
  occupyStandardDescriptors();
  const Shape shape = shapeOfTable(context, options);
  Brask::Linux::EventLoop loop;
  const StopSignals stop;
  // Failures are shown: this command runs for long, and others depend on it.
  WriterMessages messages(std::max(0, context.handler.maxLevel()));
  const std::unique_ptr<WriterCore> writer = becomeWriter(options.table, messages, shape);
  Importer importer(shape, *writer, options.format);
  Feed(loop, stop, *writer, importer).run(options.stay);
  return importer.badRows() == 0 ? kYes : kNo;
}

}  // namespace Zorbe::Tool
