// SPDX-License-Identifier: MIT
//
// How each system call can fail: the one table of the sweeps.
#pragma once

#include "fault/fault.h"

#include <string>
#include <vector>

namespace Zorbe::Test::Sweep {

/// The long forms of the sweeps are asked for by ZORBE_SWEEP=full in the environment.
bool isFull();

/// The failures of the `nth` call of a life: the errors of its manual page and, for calls
/// that move data, short results. Empty for calls that cannot fail. In the quick form one
/// of each, another one for another `nth`.
std::vector<Fault::Failure> failuresOf(const std::string& call, unsigned nth);

/// Why nobody hears of a failure of this call on this target; empty when it has to be
/// told.
std::string whyHarmless(const Fault::Victim& victim, const Fault::Failure& failure);

/// "recv ECONNRESET on socket:[1]", "send result 3 on ..."
std::string describe(const Fault::Victim& victim, const Fault::Failure& failure);

}  // namespace Zorbe::Test::Sweep
