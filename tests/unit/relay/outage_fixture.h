// SPDX-License-Identifier: MIT
#pragma once

#include "support/random.h"
#include "unit/relay/order_checker.h"
#include "unit/relay/relay_fixture.h"

#include <memory>

namespace Zorbe::Test {

/// Changes a table at random while something is away, and expects the mirrored table to become
/// equal without a reader that sees an older value after a newer one.
class RelayOutageTest : public RelayTest {
 protected:
  void makeTables() {
    RelayTest::makeTables();
    order = std::make_unique<OrderFollower>("t", at("there"));
  }

  virtual void makeAll() {
    makeTables();
    makePublisher();
    makeMirror();
  }

  /// Both tables have the same records.
  void makeAllEqual() {
    makeAll();
    change(1000);
    expectRepair();
  }

  /// Higher than all before.
  int64_t newValue() { return ++value_; }

  /// Puts and erases records of these keys.
  void change(unsigned count, uint32_t keys = 500) {
    for (unsigned i = 0; i < count; ++i) {
      const uint32_t key = random.below(keys);
      if (random.percent(25)) {
        static_cast<void>(writer->erase(key));
      } else {
        writer->put(key, {newValue(), 0});
      }
    }
    writer->publish();
  }

  /// So many times with a turn of the loop after each.
  void changeInTurns(unsigned turns) {
    for (unsigned i = 0; i < turns; ++i) {
      change(20);
      loop.turn(0.001);
    }
  }

  /// After changes that the mirror does not have yet.
  void expectRepair() {
    const Content wanted = contentOf(*writer);
    EXPECT_TRUE(turnUntil([&] { return order->content() == wanted; }));
    EXPECT_EQ(contentOf(*reader), wanted);
    EXPECT_EQ(order->fault(), "");
  }

  Random random{15};
  std::unique_ptr<OrderFollower> order;

 private:
  int64_t value_ = 0;
};

}  // namespace Zorbe::Test
