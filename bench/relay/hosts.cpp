// SPDX-License-Identifier: MIT
#include "relay/hosts.h"

#include <brask/linux/event_loop.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "mirror/mirror.h"
#include "publish/publisher.h"

namespace Bench {

namespace {

using Brask::Linux::EventLoop;
using Zorbe::Relay::Mirror;
using Zorbe::Relay::Publisher;

constexpr const char* kPrefix = "zorbe:";
constexpr uint64_t kHistory = uint64_t{64} << 20;

// Between two looks at the process's memory, which take several system calls.
constexpr uint64_t kTurnsOfLook = 16;

Zorbe::Relay::Session::Options sessionWith(const std::string& socketPath, bool writes) {
  Zorbe::Relay::Session::Options options;
  options.address = Zorbe::Relay::parseAddress("unix://" + socketPath);
  options.writes = writes;
  return options;
}

uint64_t changesOf(const Publisher& publisher) {
  return publisher.figures().sentChanges;
}

uint64_t changesOf(const Mirror& mirror) {
  return mirror.figures().changes;
}

template <class Role>
[[noreturn]] void turn(EventLoop& loop, const Role& role, Report& report) {
  const double before = ownMemory();
  bool isPass = false;
  for (uint64_t turns = 0;; ++turns) {
    loop.turn(-1);
    const bool wasPass = std::exchange(isPass, role.progress().has_value());
    if (isPass && turns % kTurnsOfLook == 0) {
      report.memory = std::max(report.memory.load(), ownMemory() - before);
    }
    if (wasPass && !isPass) ++report.finished;
    report.changes = changesOf(role);
  }
}

}  // namespace

RelayProcess::RelayProcess(const std::function<void(Report&)>& body) : report_(shared<Report>()) {
  Report& report = *report_;
  process_.start(-1, [body, &report] { body(report); });
}

double RelayProcess::processorTime() const {
  return Bench::processorTime(process_.pids().front());
}

Hosts::Hosts(size_t mirrors, double delay) {
  std::filesystem::create_directory(source().root);
  for (size_t each = 0; each < mirrors; ++each) {
    std::filesystem::create_directory(mirrored(each).root);
  }
  server_.start();
  if (delay <= 0) return;
  server_.connect();  // it listens
  link_ = std::make_unique<Link>(server_.socketPath(), delay);
}

Zorbe::Table::Options Hosts::source() const {
  return optionsOf("source");
}

Zorbe::Table::Options Hosts::mirrored(size_t number) const {
  return optionsOf(std::to_string(number));
}

Zorbe::Table::Options Hosts::optionsOf(const std::string& host) const {
  Zorbe::Table::Options options;
  options.root = directory_.path() + "/" + host;
  options.log = &log_;
  return options;
}

std::unique_ptr<RelayProcess> Hosts::publisher() const {
  return std::make_unique<RelayProcess>([this](Report& report) { publish(report); });
}

std::unique_ptr<RelayProcess> Hosts::mirror(size_t number) const {
  return std::make_unique<RelayProcess>([this, number](Report& report) { follow(number, report); });
}

void Hosts::publish(Report& report) const {
  Publisher::Options options;
  options.server = sessionWith(socketPath(), true);
  options.table = options.name = kTable;
  options.reading = source();
  options.prefix = kPrefix;
  options.history = kHistory;
  EventLoop loop;
  const Publisher publisher(options, log_);
  turn(loop, publisher, report);
}

void Hosts::follow(size_t number, Report& report) const {
  Mirror::Options options;
  options.server = sessionWith(socketPath(), false);
  options.table = options.name = kTable;
  options.writing = mirrored(number);
  options.prefix = kPrefix;
  EventLoop loop;
  const Mirror mirror(options, log_);
  turn(loop, mirror, report);
}

}  // namespace Bench
