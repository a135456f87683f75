// SPDX-License-Identifier: MIT
//
// The conformance suite on the bundled platform. Yours is the same with your loop.
#include <brask/linux/event_loop.h>
#include <conformance/loop.h>

namespace {

class BundledLoop : public Zorbe::Conformance::Loop {
 public:
  void turn(double seconds) override { loop_.turn(seconds); }

 private:
  Brask::Linux::EventLoop loop_;
};

}  // namespace

std::unique_ptr<Zorbe::Conformance::Loop> Zorbe::Conformance::makeLoop() {
  return std::make_unique<BundledLoop>();
}
