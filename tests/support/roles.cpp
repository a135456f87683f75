// SPDX-License-Identifier: MIT
#include "support/roles.h"

#include <sched.h>
#include <sys/resource.h>

#include <stdexcept>

namespace Zorbe::Test {
namespace {

/// Obeys until told to leave. One thing at a time may be awaited.
class Obedience {
 public:
  using Handler = std::function<void(const std::string& verb, uint64_t number)>;

  Obedience(Brask::Linux::EventLoop& loop, Channel& parent, Handler handler)
      : loop_(loop), parent_(parent), handler_(std::move(handler)) {}

  void sayWhen(std::function<bool()> condition, std::string words) {
    condition_ = std::move(condition);
    words_ = std::move(words);
  }

  void run() {
    Commands commands(parent_, [this](const std::string& words) { obey(words); });
    while (!left_) {
      if (condition_ && condition_()) {
        condition_ = nullptr;
        parent_.send(words_);
      }
      loop_.turn(-1);
    }
  }

 private:
  void obey(const std::string& words) {
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

bool turnUntil(Brask::Linux::EventLoop& loop, const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    loop.turn(0.1);
  }
  return true;
}

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

void playWriter(Channel& parent, SharedTable& table) {
  Stage stage;
  TableWriter writer(stage.handler, stage.root, table);
  Obedience obedience(stage.loop, parent, [&](const std::string& verb, uint64_t number) {
    const auto connected = [&writer, number] { return writer.readers.size() == number; };
    const auto answer = verb + " " + std::to_string(number);
    if (verb == "publish") return writer.publish(number);
    if (verb == "readers") return obedience.sayWhen(connected, answer);
    if (verb != "caught up") refuse(verb);
    obedience.sayWhen([connected, &writer] { return connected() && writer.allCaughtUp(); }, answer);
  });
  writer.open();
  parent.send("listening");
  obedience.run();
}

void playReader(Channel& parent, SharedTable& table) {
  Stage stage;
  TableReader reader(stage.handler, stage.root, table);
  Obedience obedience(stage.loop, parent, [&](const std::string& verb, uint64_t number) {
    if (verb != "reach") refuse(verb);
    obedience.sayWhen([&reader, number] { return reader.at() >= number; },
                      "at " + std::to_string(number));
  });
  reader.doConnect();
  obedience.run();
}

void playFollower(Channel& parent, SharedTable& table) {
  Stage stage;
  TableReader reader(stage.handler, stage.root, table);
  Departures departures(stage.handler, stage.root);
  departures.arrived = [&] { reader.doConnect(); };
  departures.departed = [&] {
    if (reader.isConnected()) reader.doCloseWriterConnection(true);
  };
  Obedience obedience(stage.loop, parent, [&](const std::string& verb, uint64_t number) {
    if (verb == "count") {
      return parent.send("connections " + std::to_string(departures.connections) + " departures " +
                         std::to_string(departures.departures));
    }
    if (verb == "alone") return obedience.sayWhen([&] { return !departures.isWatching(); }, verb);
    if (verb != "reach") refuse(verb);
    obedience.sayWhen([&reader, number] { return reader.at() >= number; },
                      "at " + std::to_string(number));
  });
  departures.watch();
  obedience.run();
}

}  // namespace Zorbe::Test
