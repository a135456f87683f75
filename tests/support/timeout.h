// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace Zorbe::Test {

/// How long anything may take before a test gives up: only a hang reaches it.
inline constexpr std::chrono::seconds kTimeout{60};

}  // namespace Zorbe::Test
