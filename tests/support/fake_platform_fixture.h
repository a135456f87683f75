// SPDX-License-Identifier: MIT
#pragma once

#include "support/fake_platform.h"
#include "support/fixture.h"

namespace Zorbe::Test {

/// For tests of the library's classes, whose objects are declared as members of derived
/// fixtures (or in the test) and so are destroyed before the platform.
class FakePlatformTest : public ZorbeTest {
 protected:
  FakePlatform platform;
};

}  // namespace Zorbe::Test
