// SPDX-License-Identifier: MIT
#pragma once

namespace Brask::Linux {

class Loop;

/// The implementation of EventLoop::current(). Throws as that does.
Loop& currentLoop();

}  // namespace Brask::Linux
