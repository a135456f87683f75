// SPDX-License-Identifier: MIT
#include "foundation/unique_fd.h"

#include "fault/fault.h"
#include "support/fixture.h"

#include <fcntl.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

class UniqueFdFaultTest : public ZorbeTest {};

TEST_F(UniqueFdFaultTest, KeepsErrnoAndClosesOnceWhenCloseFails) {
  Fault::arm("close", 1, EIO);
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  errno = EXDEV;
  { const UniqueFd owner(fd); }
  EXPECT_EQ(errno, EXDEV);
  EXPECT_EQ(Fault::calls("close"), 1u);
}

TEST_F(UniqueFdFaultTest, ClosesNoNegativeDescriptor) {
  { const UniqueFd owner(-1); }
  EXPECT_EQ(Fault::calls("close"), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
