// SPDX-License-Identifier: MIT
#include "support/roles.h"

#include <sched.h>
#include <sys/resource.h>

#include <stdexcept>

namespace Zorbe::Test {
namespace {

/// Handles commands until "leave". Awaits one condition at a time.
class CommandLoop {
 public:
  using Handler = std::function<void(const std::string& verb, uint64_t number)>;

  CommandLoop(Brask::Linux::EventLoop& loop, Channel& parent, Handler handler)
      : loop_(loop), parent_(parent), handler_(std::move(handler)) {}

  void sendWhen(std::function<bool()> condition, std::string words) {
    condition_ = std::move(condition);
    words_ = std::move(words);
  }

  void run() {
    Commands commands(parent_, [this](const std::string& words) { handle(words); });
    while (!left_) {
      if (condition_ && condition_()) {
        condition_ = nullptr;
        parent_.send(words_);
      }
      loop_.turn(-1);
    }
  }

 private:
  void handle(const std::string& words) {
    if (words == "leave") {
      left_ = true;
      return;
    }
    const auto blank = words.rfind(' ');
    const bool counted = blank != std::string::npos;
    handler_(words.substr(0, blank), counted ? std::stoull(words.substr(blank + 1)) : 0);
  }

  Brask::Linux::EventLoop& loop_;
  Channel& parent_;
  Handler handler_;
  std::function<bool()> condition_;
  std::string words_;
  bool left_ = false;
};

[[noreturn]] void refuse(const std::string& verb) {
  throw std::invalid_argument("unknown command: " + verb);
}

}  // namespace

bool enterOwnNetworkNamespace() {
  return ::unshare(CLONE_NEWNET) == 0;
}

bool allowDescriptors(unsigned count) {
  rlimit limit = {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return false;
  if (limit.rlim_cur >= count) return true;
  limit.rlim_cur = count;
  return limit.rlim_max >= count && ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

void runWriter(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableWriter writer(context.handler, context.root, table);
  CommandLoop commands(context.loop, parent, [&](const std::string& verb, uint64_t number) {
    const auto connected = [&writer, number] { return writer.readers.size() == number; };
    const auto answer = verb + " " + std::to_string(number);
    if (verb == "publish") return writer.publish(number);
    if (verb == "readers") return commands.sendWhen(connected, answer);
    if (verb != "caught up") refuse(verb);
    commands.sendWhen([connected, &writer] { return connected() && writer.allCaughtUp(); }, answer);
  });
  writer.open();
  parent.send("listening");
  commands.run();
}

void runReader(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableReader reader(context.handler, context.root, table);
  CommandLoop commands(context.loop, parent, [&](const std::string& verb, uint64_t number) {
    if (verb != "reach") refuse(verb);
    commands.sendWhen([&reader, number] { return reader.at() >= number; },
                      "at " + std::to_string(number));
  });
  reader.doConnect();
  commands.run();
}

void runFollower(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableReader reader(context.handler, context.root, table);
  Departures departures(context.handler, context.root);
  departures.arrived = [&] { reader.doConnect(); };
  departures.departed = [&] {
    if (reader.isConnected()) reader.doCloseWriterConnection(true);
  };
  CommandLoop commands(context.loop, parent, [&](const std::string& verb, uint64_t number) {
    if (verb == "count") {
      return parent.send("connections " + std::to_string(departures.connections) + " departures " +
                         std::to_string(departures.departures));
    }
    if (verb == "alone") return commands.sendWhen([&] { return !departures.isWatching(); }, verb);
    if (verb != "reach") refuse(verb);
    commands.sendWhen([&reader, number] { return reader.at() >= number; },
                      "at " + std::to_string(number));
  });
  departures.watch();
  commands.run();
}

}  // namespace Zorbe::Test
