// SPDX-License-Identifier: MIT
#include "stress/chaos/reader.h"

#include <quotes_follower.h>

#include <string>
#include <vector>

#include "stress/chaos/client_context.h"
#include "support/periodic_signal.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr std::chrono::milliseconds kConnectTimeout{100};
constexpr size_t kLeakedBytes = 1 << 16;

/// The example's client, which never waits for a stopped writer.
class Follower final : public Quotes::QuotesFollower {
 public:
  Follower(ClientContext& context, Place& place, Flaw flaw)
      : QuotesFollower(context.log, context.root,
                       {0, [this](const std::string& event) { note(event); }}),
        place_(place),
        flaw_(flaw) {}

  void begin() {
    const PeriodicSignal signals(kConnectTimeout);
    start();
  }

  void timeout() override {
    if (flaw_ == Flaw::kStaysAway && place_.departures > 0) return;
    const PeriodicSignal signals(kConnectTimeout);
    QuotesFollower::timeout();
  }

  bool updateState() {
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
    if (event == "departed" && flaw_ != Flaw::kMissesDepartures) ++place_.departures;
    if (event.rfind("corrupt", 0) == 0) ++place_.corruptions;
    if (event.rfind("mapped", 0) != 0) return;
    if (flaw_ == Flaw::kLeaksDescriptors) leakDescriptor();
    if (flaw_ == Flaw::kLeaksMemory) leaked_.emplace_back(kLeakedBytes, 'x');
  }

  Place& place_;
  Flaw flaw_;
  std::vector<std::string> leaked_;
};

}  // namespace

void runReader(Channel& parent, Place& place, Flaw flaw) {
  ClientContext context(parent, place);
  Follower follower(context, place, flaw);
  follower.begin();
  context.run([&] { return follower.updateState(); });
}

}  // namespace Zorbe::Test::Chaos
