// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"

#include <functional>

namespace Zorbe::Test {

/// A peer that is as fast as who reads: it sends before each of the next `count` calls of recv.
inline void sendBeforeEachRecv(unsigned count, const std::function<void()>& send) {
  for (unsigned call = 1; call <= count; ++call) Fault::before("recv", call, send);
}

}  // namespace Zorbe::Test
