// SPDX-License-Identifier: MIT
#include "stress/chaos/writer.h"

#include <zorbe/exceptions.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "stress/chaos/client_context.h"
#include "stress/chaos/mutual_exclusion_oracle.h"
#include "stress/chaos/published_table.h"
#include "support/noncopyable.h"
#include "support/table.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr double kRetrySeconds = 0.1;

/// Waits for the lock as long as another process has it, takes it, and writes.
class Candidate final : private NonCopyable {
 public:
  Candidate(ClientContext& context, SharedState& shared, ProcessState& state,
            const std::string& oraclePath, Kind kind, Flaw flaw)
      : context_(context),
        shared_(shared),
        state_(state),
        kind_(kind),
        flaw_(flaw),
        oracle_(oraclePath),
        retry_([this] { table_ ? publish() : attempt(); }) {}
  ~Candidate() { endWriting(); }

  void attempt() {
    try {
      std::unique_ptr<TableOfWriter> table = becomeWriter(context_, kind_);
      beginWriting();
      table_ = std::make_unique<PublishedTable>(std::move(table), shared_, state_, flaw_);
      count_ = std::max(count_, 1u);
      publish();
    } catch (const DuplicateWriterException&) {
      if (flaw_ == Flaw::kIgnoresTheLock) return beginWriting();
      retry_.control->start(kRetrySeconds);
    } catch (const Table::Error&) {  // logged; the directory was removed in between
      table_.reset();
      endWriting();
      retry_.control->start(kRetrySeconds);
    }
  }

  void handle(const std::string& words) {
    std::istringstream order(words);
    std::string verb;
    unsigned count = 0;
    uint32_t request = 0;
    order >> verb >> count >> request;
    if (flaw_ == Flaw::kWriterLeaks) leakDescriptor();
    count_ += count;
    request_ = request;
    publish();
  }

  bool takeChange() { return std::exchange(isChanged_, false); }

 private:
  // A table whose directory was removed cannot grow before it has been made again.
  void publish() {
    if (!table_) return;  // answered when it has become the writer
    try {
      table_->publish(count_);
      count_ = 0;
      isChanged_ |= update(state_.answered, request_);
    } catch (const Table::Error&) {
      retry_.control->start(kRetrySeconds);
    }
  }

  void beginWriting() {
    state_.otherWriter = oracle_.take();
    state_.writing = true;
    isChanged_ = true;
  }

  // Before the release of the lock: the next writer finds it free.
  void endWriting() {
    if (state_.writing.exchange(false)) oracle_.release();
  }

  ClientContext& context_;
  SharedState& shared_;
  ProcessState& state_;
  Kind kind_;
  Flaw flaw_;
  bool isChanged_ = false;
  unsigned count_ = 0;
  uint32_t request_ = 0;
  MutualExclusionOracle oracle_;
  std::unique_ptr<PublishedTable> table_;
  TimerProbe retry_;
};

}  // namespace

void runCandidate(Channel& parent, SharedState& shared, ProcessState& state,
                  const std::string& oraclePath, Kind kind, Flaw flaw) {
  ClientContext context(parent, state);
  Candidate candidate(context, shared, state, oraclePath, kind, flaw);
  const Commands commands(parent, [&](const std::string& words) { candidate.handle(words); });
  candidate.attempt();
  context.run([&] { return candidate.takeChange(); });
}

}  // namespace Zorbe::Test::Chaos
