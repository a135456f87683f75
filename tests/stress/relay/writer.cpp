// SPDX-License-Identifier: MIT
#include "stress/relay/writer.h"

#include <zorbe/table/in_loop.h>

#include "stress/relay/role.h"

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr double kTickSeconds = 0.01;

// Few at first: the table grows.
constexpr size_t kFewRecords = 16;

constexpr unsigned kMostChanges = 60;
constexpr unsigned kMostChangesOfManyAtOnce = 6000;

class ActiveWriter {
 public:
  ActiveWriter(SharedState& shared, const Table::Options& options, uint64_t seed)
      : shared_(shared), random_(seed), table_(kTableName, options) {
    tick_.control->start(kTickSeconds);
  }

 private:
  void tick() {
    const bool isWriting = shared_.isWriting;
    if (isWriting) burst();
    table_.publish();
    shared_.isAtRest = !isWriting;
    tick_.control->start(kTickSeconds);
  }

  // Of few keys or of many; mostly a few changes, sometimes thousands or nearly only erasures.
  void burst() {
    const unsigned most = random_.percent(1) ? kMostChangesOfManyAtOnce : kMostChanges;
    const unsigned erased = random_.percent(4) ? 90 : 20;
    const size_t keys = kKeys >> random_.below(9);
    for (unsigned left = random_.below(most); left > 0; --left) {
      const Key key = random_.below(keys);
      if (random_.percent(erased)) {
        table_.erase(key);
      } else {
        table_.put(key, Record::of(key, ++shared_.changes));
      }
    }
  }

  SharedState& shared_;
  Random random_;
  Table::LoopWriter<Key, Record> table_;
  TimerProbe tick_{[this] { tick(); }};
};

}  // namespace

void runWriter(Channel& parent, SharedState& shared, const std::string& root, uint64_t seed) {
  Role role(root);
  role.options().records = kFewRecords;
  const ActiveWriter writer(shared, role.options(), seed);
  role.run(parent);
}

}  // namespace Zorbe::Test::RelayChaos
