// SPDX-License-Identifier: MIT
#include "server/session.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "foundation/log.h"

namespace Zorbe::Relay {

namespace {

using Log::kMilestone;
using Log::kNotable;

// Between two looks whether the server answers, and how many in vain end the connection.
constexpr double kWatchSeconds = 1;
constexpr int kSilentTicks = 5;

// Pauses between attempts to connect: doubled each time.
constexpr double kFirstPause = 0.1;
constexpr double kLongestPause = 3;

// The first that removes entries of a stream by their number.
constexpr unsigned kOldestMajor = 6;
constexpr unsigned kOldestMinor = 2;

// The value of a line "name:value" of INFO; empty without one.
std::string_view fact(std::string_view info, std::string_view name) {
  for (size_t at = 0; at < info.size();) {
    const size_t end = std::min(info.find('\n', at), info.size());
    std::string_view line = info.substr(at, end - at);
    at = end + 1;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.size() <= name.size() || line.substr(0, name.size()) != name) continue;
    if (line[name.size()] == ':') return line.substr(name.size() + 1);
  }
  return {};
}

unsigned leadingNumber(std::string_view text) {
  unsigned number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool isTooOld(std::string_view version) {
  const unsigned major = leadingNumber(version);
  const size_t point = version.find('.');
  const unsigned minor =
      point == std::string_view::npos ? 0 : leadingNumber(version.substr(point + 1));
  return major < kOldestMajor || (major == kOldestMajor && minor < kOldestMinor);
}

// Why the relay cannot use this server; empty when it can.
std::string problemOf(std::string_view info, bool writes) {
  const std::string version(fact(info, "redis_version"));
  if (isTooOld(version)) return "the server's version is '" + version + "', and 6.2 is needed";
  if (!writes) return "";
  if (fact(info, "role") != "master") return "the server is a replica, which takes no changes";
  const std::string policy(fact(info, "maxmemory_policy"));
  if (policy == "noeviction") return "";
  return "the server's maxmemory-policy is '" + policy +
         "': it would remove records; set it to noeviction";
}

}  // namespace

Session::Session(const Options& options, Owner& owner, Brask::Platform::DebugHandler& log)
    : options_(options), owner_(owner), log_(log), random_(std::random_device{}()) {
  connectTimer_.start(0.0);
}

void Session::send(const Command& command, Connection::Answer answer) {
  if (connection_) connection_->send(command, std::move(answer));
}

std::string Session::failure() const {
  return lastFailure_.empty() ? "" : print(place_) + ": " + lastFailure_;
}

void Session::connect() {
  if (options_.address.master.empty()) return connectTo(options_.address.endpoints.front());
  askSentinel();
}

void Session::askSentinel() {
  const std::vector<Endpoint>& sentinels = options_.address.endpoints;
  makeConnection(sentinels[sentinel_++ % sentinels.size()]);
  Command command("SENTINEL");
  command.add("get-master-addr-by-name").add(options_.address.master);
  connection_->send(command, [this](const Reply& reply) {
    Endpoint found;
    found.host = reply[0].text();
    found.port = static_cast<uint16_t>(std::min(leadingNumber(reply[1].text()), 65535u));
    if (reply.isError()) return restart(std::string(reply.text()));
    if (found.host.empty() || found.port == 0) {
      return restart("the sentinel knows no master '" + options_.address.master + "'");
    }
    connectTo(found);
  });
}

void Session::makeConnection(const Endpoint& endpoint) {
  place_ = endpoint;
  connection_ = std::make_unique<Connection>(endpoint, *this, options_.address.tls);
  answered_ = 0;
  silentTicks_ = 0;
  watchTimer_.start(kWatchSeconds);
}

void Session::connectTo(const Endpoint& endpoint) {
  makeConnection(endpoint);
  authenticate();
}

void Session::authenticate() {
  std::string password;
  try {
    password = options_.credentials.currentPassword();
  } catch (const UsageError& error) {
    return restart(error.what());
  }
  if (password.empty()) return select();
  Command command("AUTH");
  if (!options_.credentials.user.empty()) command.add(options_.credentials.user);
  sendChecked(command.add(password), &Session::select);
}

void Session::select() {
  sendChecked(Command("SELECT").add(options_.address.database), &Session::greet);
}

void Session::greet() {
  connection_->send(Command("INFO"), [this](const Reply& reply) { examine(reply); });
}

void Session::sendChecked(const Command& command, void (Session::*next)()) {
  connection_->send(command, [this, next](const Reply& reply) {
    if (reply.isError()) return restart(std::string(reply.text()));
    (this->*next)();
  });
}

void Session::examine(const Reply& info) {
  if (info.isError()) return restart(std::string(info.text()));
  const std::string problem = problemOf(info.text(), options_.writes);
  if (!problem.empty()) return restart(problem);
  isReady_ = true;
  ZORBE_LOG(log_, kMilestone, "connected with " << print(place_));
  owner_.sessionBegan();
}

void Session::restart(const std::string& why) {
  if (std::exchange(lastFailure_, why) != why) {
    ZORBE_LOG(log_, kNotable, print(place_) << ": " << why);
  }
  connection_.reset();
  watchTimer_.cancel();
  const double pause =
      std::min(kLongestPause, kFirstPause * static_cast<double>(1u << std::min(attempts_++, 10u)));
  connectTimer_.start(pause * std::uniform_real_distribution<>(0.5, 1)(random_));
  if (std::exchange(isReady_, false)) owner_.sessionEnded();
}

void Session::connectionEnded(const std::string& why) {
  restart(why);
}

// A server that is stopped, and a link that is cut, show in nothing but silence. A session that
// ends at once, since the server refuses what is asked of it, is one more attempt in vain.
void Session::watch() {
  watchTimer_.start(kWatchSeconds);
  if (isReady_) {
    attempts_ = 0;
    lastFailure_.clear();
  }
  const bool isSilent = connection_->pending() > 0 && connection_->answered() == answered_;
  answered_ = connection_->answered();
  silentTicks_ = isSilent ? silentTicks_ + 1 : 0;
  if (silentTicks_ >= kSilentTicks) restart("no answer");
}

}  // namespace Zorbe::Relay
