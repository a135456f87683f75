// SPDX-License-Identifier: MIT
//
// What the fuzzers of the bundled loop share: turns and callbacks that may throw.
#pragma once

#include "stress/fuzz/input.h"

#include <brask/linux/event_loop.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace Zorbe::Test::Fuzz {

/// What a client's callback throws.
struct Thrown {};

/// Runs a turn of the loop to its end, which `model` expects.
template <class Model, class Turn>
void turnAndCheck(Model& model, Turn turn) {
  bool thrown = false;
  try {
    turn();
  } catch (const Thrown&) {
    thrown = true;
  }
  model.endTurn(thrown);
}

/// Which values of the input are actions: those from `first` on, below `end`.
struct Actions {
  unsigned first;
  unsigned end;
};

/// A client's callback: continues with the input, less than `most` times; may throw, may not turn
/// the loop.
template <class Act>
void callBack(Input& input, Brask::Linux::EventLoop& loop, unsigned most, Actions actions,
              Act act) {
  for (unsigned count = input.below(most); count > 0 && !input.atEnd(); --count) {
    const unsigned what = input.below(actions.end + 2);
    if (what == actions.end) throw Thrown();
    if (what == actions.end + 1) EXPECT_THROW(loop.turn(0), std::logic_error);
    if (what >= actions.first && what < actions.end) act(what);
  }
}

}  // namespace Zorbe::Test::Fuzz
