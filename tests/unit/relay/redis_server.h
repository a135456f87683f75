// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>

#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace Zorbe::Test {

/// Sends one command to the server on that socket, and returns the answer as text; an array's
/// parts, a blank after each.
std::string askServer(const std::string& socket, const std::vector<std::string>& words);

/// A real server on a local socket, with nothing on disk but what a test asks it to save.
class RedisServer {
 public:
  /// Starts it in `directory`, and returns when it answers. `launcher`: the words before its own.
  explicit RedisServer(const std::string& directory, std::vector<std::string> options = {},
                       std::vector<std::string> launcher = {});

  std::string address() const { return "unix://" + socket_; }

  /// See askServer.
  std::string ask(const std::vector<std::string>& words) const { return askServer(socket_, words); }

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
  std::vector<std::string> launcher_;
  std::unique_ptr<ChildProcess> process_;
};

}  // namespace Zorbe::Test
