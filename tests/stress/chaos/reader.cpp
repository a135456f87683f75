// SPDX-License-Identifier: MIT
#include "stress/chaos/reader.h"

#include <quotes_follower.h>

#include <string>
#include <vector>

#include "stress/chaos/stage.h"
#include "support/watchdog.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr std::chrono::milliseconds connectPatience{100};
constexpr size_t leakedBytes = 1 << 16;

/// The example's client, which never waits for a stopped writer.
class Follower final : public Quotes::QuotesFollower {
 public:
  Follower(ChaosStage& stage, Place& place, Flaw flaw)
      : QuotesFollower(stage.log, stage.root,
                       {0, [this](const std::string& event) { note(event); }}),
        place_(place),
        flaw_(flaw) {}

  void begin() {
    const Watchdog watchdog(connectPatience);
    start();
  }

  void timeout() override {
    if (flaw_ == Flaw::staysAway && place_.departures > 0) return;
    const Watchdog watchdog(connectPatience);
    QuotesFollower::timeout();
  }

  bool tellState() {
    const Quotes::QuotesReader* const mapped = reader();
    if (mapped == nullptr) return false;
    const Quotes::ChangeFollower& followed = mapped->followed();
    bool news = update(place_.fenix, followed.table().fenix());
    news |= update(place_.sequence, followed.sequence());
    news |= update(place_.attached, seesWriter() && mapped->isConnected());
    return news;
  }

 private:
  void note(const std::string& event) {
    if (event == "departed" && flaw_ != Flaw::hearsNothing) ++place_.departures;
    if (event.rfind("corrupt", 0) == 0) ++place_.corruptions;
    if (event.rfind("mapped", 0) != 0) return;
    if (flaw_ == Flaw::leaksDescriptors) leakDescriptor();
    if (flaw_ == Flaw::leaksMemory) leaked_.emplace_back(leakedBytes, 'x');
  }

  Place& place_;
  Flaw flaw_;
  std::vector<std::string> leaked_;
};

}  // namespace

void playReader(Channel& parent, Place& place, Flaw flaw) {
  ChaosStage stage(parent, place);
  Follower follower(stage, place, flaw);
  follower.begin();
  stage.run([&] { return follower.tellState(); });
}

}  // namespace Zorbe::Test::Chaos
