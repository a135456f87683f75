// SPDX-License-Identifier: MIT
#include "unit/relay/link.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <stdexcept>

namespace Zorbe::Test {

namespace {

constexpr const char* kPath = "/usr/bin/env";

Words join(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

// An ordinary user becomes root of a user namespace, to which the network namespaces belong.
bool needsUserNamespace() {
  return ::geteuid() != 0;
}

}  // namespace

Link::Link() {
  try {
    make();
  } catch (const std::runtime_error& failure) {
    problem_ = std::string("network namespaces cannot be made here: ") + failure.what();
  }
}

void Link::make() {
  Words maker{kPath, "unshare", "--net"};
  if (needsUserNamespace()) maker = join(maker, {"--user", "--map-root-user"});
  here_ = hold(maker);
  there_ = hold(here({"unshare", "--net"}));
  const std::string other = std::to_string(there_->pid());
  const std::string script =
      "ip link add left type veth peer name right netns " + other +
      " && ip address add 10.99.0.1/24 dev left && ip link set left up"
      " && nsenter --net --target=" +
      other + " sh -c 'ip address add 10.99.0.2/24 dev right && ip link set right up'";
  if (!tryTo(script)) throw std::runtime_error("ip(8) makes no link");
}

// The process that a namespace is there for.
std::unique_ptr<ChildProcess> Link::hold(const Words& maker) {
  const char* const script = "ip link set lo up && echo ready && exec tail -f /dev/null";
  auto holder = std::make_unique<ChildProcess>(join(maker, {"sh", "-c", script}));
  try {
    holder->await("ready");
  } catch (const std::runtime_error&) {
    throw std::runtime_error(holder->log());
  }
  return holder;
}

Words Link::in(const ChildProcess& holder, const Words& words) {
  Words enter{kPath, "nsenter", "--net", "--target=" + std::to_string(holder.pid())};
  if (needsUserNamespace()) enter = join(enter, {"--user", "--preserve-credentials"});
  return join(enter, words);
}

bool Link::tryTo(const std::string& script) {
  return runProgram(here({"sh", "-c", script})).status == 0;
}

void Link::run(const std::string& script) {
  EXPECT_TRUE(tryTo(script)) << script;
}

bool Link::narrow() {
  return tryTo("tc qdisc add dev left root tbf rate 4mbit burst 10kb latency 20ms");
}

unsigned long Link::dropped() const {
  const std::string shown = runProgram(here({"tc", "-s", "qdisc", "show", "dev", "left"})).out;
  const std::string label = "(dropped ";
  const size_t at = shown.find(label);
  return at == std::string::npos ? 0 : std::stoul(shown.substr(at + label.size()));
}

}  // namespace Zorbe::Test
