// SPDX-License-Identifier: MIT
#include "stress/relay/hosts.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <utility>

#include "stress/relay/follower.h"
#include "stress/relay/link.h"
#include "stress/relay/writer.h"

namespace Zorbe::Test::RelayChaos {
namespace {

// For conditions without a message: tables, and what readers report.
constexpr std::chrono::milliseconds kLongestWait{50};

volatile std::sig_atomic_t interrupted = 0;

std::string makeRoot(const TestRoot& root, const std::string& name) {
  std::filesystem::create_directory(root / name);
  return root / name;
}

std::vector<std::string> relay(const char* direction, const char* option, const std::string& link,
                               const std::string& root) {
  return {ZORBE_RELAY, direction, kTableName, option, "unix://" + link,
          "--root",    root,      "--debug",  "2"};
}

Process makeLink(const std::string& name, const std::string& path, const std::string& server) {
  return {name, [=](Channel& parent) { runLink(parent, path, server); }};
}

}  // namespace

void interrupt() noexcept {
  interrupted = 1;
}

std::string keyOnServer(const char* suffix) {
  return std::string("zorbe:{") + kTableName + "}:" + suffix;
}

// The shortest history: what a mirror has missed is not always there any more.
Hosts::Hosts(const TestRoot& root, Random& random)
    : random_(random),
      sourceRoot_(makeRoot(root, "source")),
      server_(root / "server"),
      link_(makeLink("publishers' link", root / "link", server_.socket())),
      writer_("writer",
              [this](Channel& parent) {
                runWriter(parent, *shared_, sourceRoot_, random_.next() + shared_->changes);
              }),
      publishers_([&] {
        auto arguments = relay("publish", "--to", root / "link", sourceRoot_);
        arguments.insert(arguments.end(), {"--history", "1"});
        return arguments;
      }()) {
  for (unsigned number = 0; number < kMirrors; ++number) addMirror(root, number);
}

void Hosts::addMirror(const TestRoot& root, unsigned number) {
  const std::string suffix = " " + std::to_string(number + 1);
  const std::string home = makeRoot(root, "mirror-" + std::to_string(number + 1));
  const std::string link = home + ".link";
  mirrors_.push_back(
      {home, makeLink("link" + suffix, link, server_.socket()),
       Process("mirror" + suffix, relay("mirror", "--from", link, home)),
       Process("reader" + suffix,
               [=](Channel& parent) { runFollower(parent, *shared_, number, home); }),
       shared_->followers.at(number)});
}

std::vector<Process*> Hosts::links() {
  std::vector<Process*> links = {&link_};
  for (MirrorHost& host : mirrors_) links.push_back(&host.link);
  return links;
}

void Hosts::forEach(const std::function<void(Process&)>& action) {
  action(server_.process());
  for (Process* const link : links()) action(*link);
  action(writer_);
  for (MirrorHost& host : mirrors_) {
    action(host.mirror);
    action(host.follower);
  }
}

void Hosts::restore() {
  const auto resume = [](Process& process) {
    if (process.isStopped()) process.resume();
  };
  forEach(resume);
  for (Process& publisher : publishers_.all()) resume(publisher);
  if (!server_.process().isAlive()) server_.start(Server::Memory::kSnapshot);
  static_cast<void>(server_.ask({"CLIENT", "UNPAUSE"}));
  if (!server_.ask({"CONFIG", "SET", "maxmemory", "0"})) throw Failure("the server is silent");
  forEach([](Process& process) {
    if (!process.isAlive()) process.start();
  });
  publishers_.noticeEnds();
  if (publishers_.all().empty()) publishers_.start();
}

void Hosts::quicken() {
  for (Process* const link : links()) link->channel().send("fast");
}

bool Hosts::await(Clock::time_point deadline, const std::function<bool()>& condition) {
  for (;;) {
    requireSanity();
    if (condition()) return true;
    if (Clock::now() >= deadline) return false;
    wait(deadline);
  }
}

void Hosts::requireSanity() {
  if (interrupted) throw Failure("interrupted");
  forEach([](Process& process) {
    if (!process.hasEnded()) return;
    const int status = process.reap();
    throw Failure(process.name() + " has ended by itself, with status " + std::to_string(status) +
                  "\n" + process.log());
  });
  publishers_.noticeEnds();
  for (const MirrorHost& host : mirrors_) {
    if (host.state.isWrong) throw Failure(host.follower.name() + ": " + host.state.what.data());
  }
}

// The end of a process ends a wait.
void Hosts::wait(Clock::time_point deadline) {
  std::vector<pollfd> channels;
  const auto add = [&](Process& process) {
    if (process.isAlive()) channels.push_back({process.channel().fd(), POLLIN, 0});
  };
  forEach(add);
  for (Process& publisher : publishers_.all()) add(publisher);
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  const auto most = std::clamp(left + std::chrono::milliseconds(1), {}, kLongestWait);
  const int ready = ::poll(channels.data(), channels.size(), static_cast<int>(most.count()));
  if (ready < 0 && errno != EINTR) throw Failure(std::string("poll: ") + std::strerror(errno));
}

uint64_t Hosts::followed() {
  uint64_t sum = 0;
  for (const MirrorHost& host : mirrors_) sum += host.state.changes;
  return sum;
}

std::string Hosts::logs() {
  std::string text = publishers_.logs();
  forEach([&](Process& process) { text += "---- " + process.name() + ":\n" + process.log(); });
  return text + server_.log();
}

void Hosts::leave() {
  for (Process& publisher : publishers_.all()) publisher.leave();
  for (MirrorHost& host : mirrors_) {
    host.follower.leave();
    host.mirror.leave();
  }
  writer_.leave();
}

}  // namespace Zorbe::Test::RelayChaos
