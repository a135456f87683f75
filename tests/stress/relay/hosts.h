// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "stress/relay/process.h"
#include "stress/relay/publishers.h"
#include "stress/relay/server.h"
#include "stress/relay/shared_state.h"
#include "support/random.h"
#include "support/shared.h"
#include "support/test_root.h"

namespace Zorbe::Test::RelayChaos {

/// One of the table's keys on the server.
std::string keyOnServer(const char* suffix);

/// A host with a copy of the table: its link to the server, its mirror, and a reader.
struct MirrorHost {
  std::string root;
  Process link;
  Process mirror;
  Process follower;
  FollowerState& state;
};

/// All hosts: the server, the writer's, and those with a copy.
class Hosts {
 public:
  Hosts(const TestRoot& root, Random& random);

  Server& server() { return server_; }
  Process& writer() { return writer_; }
  Process& link() { return link_; }
  Publishers& publishers() { return publishers_; }
  std::vector<MirrorHost>& mirrors() { return mirrors_; }
  std::vector<Process*> links();
  SharedState& shared() { return *shared_; }
  const std::string& sourceRoot() const { return sourceRoot_; }

  /// Everything that is missing or stopped runs again.
  void restore();

  /// No link is slow any more.
  void quicken();

  /// Waits until the condition holds; false when it does not in time. Throws Failure when a
  /// process has ended by itself, or a reader has seen what must not be.
  bool await(Clock::time_point deadline, const std::function<bool()>& condition);

  /// Changes that the readers of all copies have followed.
  uint64_t followed();

  /// The ends of all logs.
  std::string logs();

  /// Ends every process, each with status 0.
  void leave();

 private:
  void addMirror(const TestRoot& root, unsigned number);
  void requireSanity();
  void wait(Clock::time_point deadline);
  void forEach(const std::function<void(Process&)>& action);

  Shared<SharedState> shared_;
  Random& random_;
  std::string sourceRoot_;
  Server server_;
  Process link_;
  Process writer_;
  Publishers publishers_;
  std::vector<MirrorHost> mirrors_;
};

/// Makes each wait of a run fail. For signal handlers.
void interrupt() noexcept;

}  // namespace Zorbe::Test::RelayChaos
