// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <locale.h>
#include <stdlib.h>

#include <algorithm>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "command_line.h"
#include "host/sockets.h"
#include "mirror/mirror.h"
#include "output/text.h"
#include "progress/status_line.h"
#include "publish/publisher.h"
#include "records/streams.h"
#include "server/credentials.h"
#include "status/status.h"
#include "status/survey.h"

namespace Zorbe::Relay {

namespace {

Session::Options serverOf(const Arguments& arguments, bool writes) {
  Session::Options options;
  options.address = parseAddress(arguments.address, arguments.tls);
  if (options.address.tls) static_cast<void>(Encryption(arguments.tls, "localhost"));  // or throws
  options.credentials = findCredentials(arguments.user, arguments.passwordFile);
  options.writes = writes;
  return options;
}

Table::Options tableOptions(const Arguments& arguments, Brask::Platform::DebugHandler& log) {
  Table::Options options;
  options.root = arguments.root;
  options.log = &log;
  return options;
}

/// Notices a signal that asks the process to end, in the current loop.
class StopWatch : public Brask::Platform::FdEventHandler {
 public:
  explicit StopWatch(const Tool::StopSignals& signals)
      : control_(Brask::Platform::getFdControl(this)) {
    control_->watch(signals.fd());
  }

  void fdEvent(int) override { isStopped_ = true; }

  bool isStopped() const { return isStopped_; }

 private:
  std::unique_ptr<Brask::Platform::FdControl> control_;
  bool isStopped_ = false;
};

template <class IsOver>
int turn(Brask::Linux::EventLoop& loop, const Tool::StopSignals& signals, const IsOver& isOver) {
  const StopWatch stop(signals);
  while (!isOver()) {
    loop.turn(-1);
    if (stop.isStopped()) return kSuccess;
  }
  return kEnded;
}

int publish(const Arguments& arguments) {
  const Tool::StopSignals stop;
  StatusLine line;
  LogAboveLine log(line, arguments.debug.value_or(1));
  Publisher::Options options;
  options.server = serverOf(arguments, true);
  options.table = arguments.table;
  options.reading = tableOptions(arguments, log);
  options.name = arguments.name.empty() ? arguments.table : arguments.name;
  options.prefix = arguments.prefix;
  options.history = arguments.history << 20;
  Brask::Linux::EventLoop loop;
  const Publisher publisher(options, log);
  const ProgressDisplay display(line, options.table, [&] { return publisher.progress(); });
  const int status = turn(loop, stop, [&] { return !publisher.end().empty(); });
  line.clear();
  if (!publisher.end().empty())
    std::cerr << "zorbe-relay: " + Tool::printable(publisher.end()) + "\n";
  return status;
}

int mirror(const Arguments& arguments) {
  const Tool::StopSignals stop;
  StatusLine line;
  LogAboveLine log(line, arguments.debug.value_or(1));
  Mirror::Options options;
  options.server = serverOf(arguments, false);
  options.name = arguments.table;
  options.table = arguments.name.empty() ? arguments.table : arguments.name;
  options.writing = tableOptions(arguments, log);
  options.prefix = arguments.prefix;
  Brask::Linux::EventLoop loop;
  const Mirror mirror(options, log);
  const ProgressDisplay display(line, options.table, [&] { return mirror.progress(); });
  return turn(loop, stop, [] { return false; });
}

// What the server has, and this host of it; what goes wrong is an exception, with the messages that
// come before it.
std::vector<Row> look(const Arguments& arguments) {
  const Tool::StopSignals stop;
  Brask::Linux::StreamDebugHandler log(std::cerr, arguments.debug.value_or(0));
  Brask::Linux::EventLoop loop;
  const auto table = arguments.table.empty() ? std::nullopt : std::optional(arguments.table);
  const Survey survey(serverOf(arguments, false), arguments.prefix, table, log);
  turn(loop, stop, [&] { return survey.isOver(); });
  if (!survey.failure().empty()) throw std::runtime_error(survey.failure());
  if (!survey.isOver()) throw std::runtime_error("interrupted");
  if (!arguments.root.empty() && ::setenv("SHMEM_ROOT", arguments.root.c_str(), 1) != 0) {
    throw std::bad_alloc();
  }
  static_cast<void>(Tool::enterNamespaceOfTables());  // without it, no writers are seen
  return rowsOf(survey.tables(), arguments.name, log);
}

int status(const Arguments& arguments) {
  const std::vector<Row> rows = look(arguments);
  const bool isMissing = rows.empty() && !arguments.table.empty();
  if (isMissing) {
    std::cerr << "zorbe-relay: the server has no table " + Tool::word(arguments.table) + "\n";
  }
  if (arguments.json) {
    printJson(rows, arguments.address);
  } else if (!isMissing) {
    printStatus(rows, arguments.isWide);
  }
  const auto isPublished = [](const Row& row) { return row.served.isPublished(); };
  const bool isGood = !isMissing && std::all_of(rows.begin(), rows.end(), isPublished);
  return isGood ? kSuccess : kEnded;
}

int metrics(const Arguments& arguments) {
  printMetrics(look(arguments));
  return kSuccess;
}

int run(const Arguments& arguments) {
  switch (arguments.action) {
    case Action::kPublish:
      return publish(arguments);
    case Action::kMirror:
      return mirror(arguments);
    case Action::kStatus:
      return status(arguments);
    case Action::kMetrics:
      break;
  }
  return metrics(arguments);
}

}  // namespace

}  // namespace Zorbe::Relay

int main(int argc, char** argv) {
  static_cast<void>(setlocale(LC_CTYPE, ""));  // an unknown locale leaves "C"
  try {
    Zorbe::Relay::Arguments arguments;
    const auto done = Zorbe::Relay::parse(argc, argv, arguments);
    const int status = done ? *done : Zorbe::Relay::run(arguments);
    std::cout.flush();
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
    return status;
  } catch (const std::exception& failure) {
    std::cerr << "zorbe-relay: " + Zorbe::Tool::printable(failure.what()) + "\n";
    return Zorbe::Relay::kFailure;
  }
}
