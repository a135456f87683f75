// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "stress/relay/process.h"

namespace Zorbe::Test::RelayChaos {

/// The server that all hosts reach, in a directory of its own.
class Server {
 public:
  explicit Server(std::string directory);

  /// What it finds when it starts.
  enum class Memory {
    kEmpty,
    kSnapshot,  ///< the last one that was saved, however old; nothing without one
    kLog,       ///< what it has noted of each change, when it last was started to do so
  };

  /// Returns when it answers.
  void start(Memory memory);

  Process& process() { return process_; }
  const std::string& socket() const { return socket_; }

  /// Sends one command, and returns the answer, when it is no error.
  std::optional<std::string> ask(const std::vector<std::string>& words) const;

  /// Ends all connections of others. Returns whether it has done it.
  bool endConnections() const;

  /// The end of its log.
  std::string log() const;

 private:
  std::vector<std::string> arguments(bool notesChanges) const;

  std::string directory_;
  std::string socket_;
  Process process_;
};

}  // namespace Zorbe::Test::RelayChaos
