// SPDX-License-Identifier: MIT
#pragma once

namespace Brask::Linux {

class Loop;

/// What EventLoop::current() stands before; throws like it.
Loop& currentLoop();

}  // namespace Brask::Linux
