// SPDX-License-Identifier: MIT
#include "support/fixture.h"

#include "fault/fault.h"

#include <unistd.h>

namespace Zorbe::Test {

ZorbeTest::ZorbeTest() : before_(Census::take()), root_(std::make_unique<TestRoot>()) {
  Fault::reset();
}

ZorbeTest::~ZorbeTest() {
  checkFaults();
  Fault::reset();
  root_.reset();
  handler.verifyFailures();
  checkDescriptors();
}

// A test that stopped early has not reached its faults.
void ZorbeTest::checkFaults() const {
  if (unfiredAllowed_ || HasFailure() || IsSkipped()) return;
  const auto unfired = Fault::unfired();
  if (!unfired.empty()) {
    ADD_FAILURE() << "armed, but never fired: " << testing::PrintToString(unfired);
  }
}

void ZorbeTest::checkDescriptors() const {
  const Census after = Census::take();
  const auto left = before_.openedBy(after);
  const auto closed = after.openedBy(before_);
  if (left.size() != leaks_ || !closed.empty()) {
    ADD_FAILURE() << "descriptors changed, " << leaks_ << " expected to stay open:\n"
                  << before_.difference(after);
  }
  const Fault::Bypass bypass;
  for (const int fd : left) EXPECT_EQ(close(fd), 0) << "descriptor " << fd;
}

}  // namespace Zorbe::Test
