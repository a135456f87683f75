// SPDX-License-Identifier: MIT
#pragma once

#include "support/child_process.h"
#include "support/outcome.h"

#include <memory>
#include <string>

namespace Zorbe::Test {

/// Two hosts as network namespaces, 10.99.0.1 here and 10.99.0.2 there, with a link between them.
class Link {
 public:
  static constexpr const char* kHere = "10.99.0.1";

  /// Makes them if the kernel lets this user do that: see problem().
  Link();

  /// Why they could not be made; empty when they are there.
  const std::string& problem() const { return problem_; }

  /// The words that run a program in one of the namespaces.
  Words here(const Words& words) const { return in(*here_, words); }
  Words there(const Words& words) const { return in(*there_, words); }

  void cut() { run("ip link set left down"); }
  void repair() { run("ip link set left up"); }

  /// Delays what goes there, and drops what is too much. False when the kernel cannot.
  bool narrow();
  /// How many packets were too much so far.
  unsigned long dropped() const;
  void widen() { run("tc qdisc del dev left root"); }

 private:
  static Words in(const ChildProcess& holder, const Words& words);
  static std::unique_ptr<ChildProcess> hold(const Words& maker);

  void make();
  bool tryTo(const std::string& script);
  void run(const std::string& script);

  std::unique_ptr<ChildProcess> here_;
  std::unique_ptr<ChildProcess> there_;
  std::string problem_;
};

}  // namespace Zorbe::Test
