// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/mounter.h>
#include <zorbe/root_path.h>
#include <zorbe/unlock.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "commands/commands.h"
#include "host/locks.h"
#include "output/json.h"
#include "output/text.h"
#include "output/time.h"

namespace Zorbe::Tool {

namespace {

class EventLog {
 public:
  explicit EventLog(bool json) : json_(json) {}

  // Flushes each line: a person watches, or a program reads from a pipe.
  void write(const char* event, const std::string& detail) {
    if (json_) {
      print({{"time", utcTime(realTimeNow())}, {"event", event}, {"detail", utf8(detail)}});
    } else {
      std::cout << utcTime(realTimeNow()) << "  " << event;
      if (!detail.empty()) std::cout << "  " << printable(detail);
      std::cout << std::endl;
    }
    if (!std::cout) throw std::runtime_error("cannot write to standard output");
  }

 private:
  bool json_;
};

// Distinguishes errors and the removal of the directory from names of files, which
// rootChanged() alone cannot.
class WatchedRoot : private MounterBase, public MounterSm {
 public:
  WatchedRoot(Brask::Platform::DebugHandler& messages, const std::string& table, EventLog& log)
      : MounterSm(messages, table, this), log_(log) {}

  void inotifyError(const std::string& what) override { log_.write("watch-error", what); }
  void inotifyChanged(const std::string& what) override { log_.write("changed", what); }
  void inotifyDeleted() override {
    log_.write("directory-removed", rootPath.path);
    MounterSm::inotifyDeleted();
  }

 private:
  void rootChanged(const std::string& /*what*/) override {
    log_.write("directory-created", rootPath.path);
  }

  EventLog& log_;
};

volatile std::sig_atomic_t stopping = 0;

class WatchedWriter : public WriterUnlockSm {
 public:
  WatchedWriter(Brask::Platform::DebugHandler& messages, const RootPath& root, EventLog& log)
      : WriterUnlockSm(messages, "zorbe watch", root), log_(log) {}

  /// Connects now, or ten times a second until a writer listens.
  void follow() {
    // A writer that spells the directory in another way is looked for once a second: it takes a
    // pass over all processes.
    if (attempts_++ % 10 == 0)
      rootPath.path = pathOfLock(*handler, inspect(*handler, rootPath.name));
    if (isQueueFull()) return pause();
    full_ = false;
    doConnect();
    if (fdControl->fd() < 0 || stopping != 0) return;
    present_ = true;
    attempts_ = 0;
    log_.write("writer-connected", who());
  }

  // A process that ends closes its connections before its lock: a client that reconnects at
  // once may reach the same writer again.
  void writerUnlocked() override {
    if (present_.value_or(true)) log_.write(present_ ? "writer-disconnected" : "no-writer", "");
    const bool departed = present_.value_or(false);
    present_ = false;
    if (!departed) return follow();
    pause();
  }

  void timeout() override {
    if (!pausing_) return WriterUnlockSm::timeout();
    pausing_ = false;
    follow();
  }

 private:
  void pause() {
    pausing_ = true;
    timerControl->start(kPauseSeconds);
  }

  // connect(2) would wait for the writer, which may be stopped.
  bool isQueueFull() {
    const SocketsByName sockets = readSockets();
    const auto found = sockets.find(socketName(rootPath.path).value_or(""));
    if (found == sockets.end() || !found->second.isFull()) return false;
    if (!full_) log_.write("writer-queue-full", "");
    full_ = true;
    return true;
  }

  std::string who() {
    const Table table = inspect(*handler, rootPath.name);
    if (!table.writer || table.writer->pids.empty()) return "";
    return "pid " + std::to_string(table.writer->pids.front()) + " " + table.writer->executable;
  }

  EventLog& log_;
  static constexpr double kPauseSeconds = 0.1;
  std::optional<bool> present_;  // unknown at first
  unsigned attempts_ = 0;
  bool full_ = false;     // was reported
  bool pausing_ = false;  // between a departure and the next attempt
};

Brask::Linux::EventLoop* running = nullptr;

void stop(int /*signal*/) {
  stopping = 1;
  running->stop();
}

// Stops the loop, which outlives this object, on SIGINT and SIGTERM. The second signal of a kind
// ends the process: connect(2) may be waiting for a stopped writer. Without SA_RESTART the
// first one already interrupts that wait.
class StopOnSignals {
 public:
  explicit StopOnSignals(Brask::Linux::EventLoop& loop) {
    running = &loop;
    struct sigaction action {};
    action.sa_handler = stop;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kSignals) {
      if (sigaction(signal, &action, nullptr) != 0) {
        throw std::system_error(errno, std::generic_category(), "sigaction");
      }
    }
  }
  StopOnSignals(const StopOnSignals&) = delete;
  StopOnSignals& operator=(const StopOnSignals&) = delete;
  ~StopOnSignals() {
    for (const int signal : kSignals) static_cast<void>(std::signal(signal, SIG_DFL));
  }

 private:
  static constexpr int kSignals[] = {SIGINT, SIGTERM};
};

}  // namespace

int watch(Context& context, const WatchOptions& options) {
  const Table table = inspect(context.handler, options.table);
  if (!table.isThere()) return reportMissing(table);  // watching would create the directory
  Brask::Linux::EventLoop loop;
  const StopOnSignals guard(loop);
  EventLog log(context.json);
  // Runs for long, among peers that may make it log: keeps no failures, and limits what it shows.
  Brask::Linux::StreamDebugHandler messages(std::cerr, context.handler.maxLevel(), {200, 50});
  WatchedRoot root(messages, options.table, log);
  log.write("watching", table.path);
  WatchedWriter writer(messages, RootPath(messages, options.table, false), log);
  if (options.connect) writer.follow();
  loop.run();
  return kYes;
}

}  // namespace Zorbe::Tool
