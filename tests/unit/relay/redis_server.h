// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace Zorbe::Test {

/// A real server on a local socket, with nothing on disk but what a test asks it to save.
class RedisServer {
 public:
  /// Starts it in `directory`, and returns when it answers.
  explicit RedisServer(const std::string& directory, std::vector<std::string> options = {});

  std::string address() const { return "unix://" + socket_; }

  /// Sends one command, and returns the answer as text; an array's parts, a blank after each.
  std::string ask(const std::vector<std::string>& words) const;

  /// It loses what it has not saved.
  void kill() { process_->kill(); }
  /// Once more, after kill().
  void start();

  void stop() const { process_->stop(); }
  void resume() const { process_->signal(SIGCONT); }

 private:
  std::string directory_;
  std::string socket_;
  std::vector<std::string> options_;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace Zorbe::Test
