// SPDX-License-Identifier: MIT
//
// How each system call can fail: the table of the sweeps.
#pragma once

#include "fault/fault.h"

#include <string>
#include <vector>

namespace Zorbe::Test::Sweep {

/// ZORBE_SWEEP=full in the environment selects the long forms of the sweeps.
bool isFull();

/// The failures of the `nth` call of a scenario: the errors of its manual page and, for calls
/// that move data, short results. Empty for calls that cannot fail. In the quick form one
/// of each, another one for another `nth`.
std::vector<Fault::Failure> failuresOf(const std::string& call, unsigned nth);

/// Why a failure of this call on this target is not reported; empty when it has to be.
std::string whyHarmless(const Fault::InterceptedCall& failed, const Fault::Failure& failure);

/// "recv ECONNRESET on socket:[1]", "send result 3 on ..."
std::string describe(const Fault::InterceptedCall& failed, const Fault::Failure& failure);

}  // namespace Zorbe::Test::Sweep
