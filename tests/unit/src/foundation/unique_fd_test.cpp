// SPDX-License-Identifier: MIT
#include "foundation/unique_fd.h"

#include "support/descriptor_zero.h"
#include "support/fixture.h"

#include <fcntl.h>

#include <cerrno>

namespace Zorbe::Test {
namespace {

// The fixture reports a descriptor that stays open.
class UniqueFdTest : public ZorbeTest {
 protected:
  static int openOne() {
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return fd;
  }
  static bool isOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }
};

TEST_F(UniqueFdTest, ClosesWhatItOwns) {
  const int fd = openOne();
  {
    const UniqueFd owner(fd);
    EXPECT_EQ(owner.get(), fd);
    EXPECT_TRUE(isOpen(fd));
  }
  EXPECT_FALSE(isOpen(fd));
}

TEST_F(UniqueFdTest, ClosesNothingAfterRelease) {
  const int fd = openOne();
  {
    UniqueFd owner(fd);
    EXPECT_EQ(owner.release(), fd);
    EXPECT_EQ(owner.get(), -1);
  }
  EXPECT_TRUE(isOpen(fd));
  EXPECT_EQ(close(fd), 0);
}

TEST_F(UniqueFdTest, OwnsDescriptorZeroToo) {
  const DescriptorZero zero;
  zero.free();
  { const UniqueFd owner(openOne()); }
  EXPECT_FALSE(DescriptorZero::isOpen());
}

TEST_F(UniqueFdTest, MovesOwnership) {
  const int fd = openOne();
  UniqueFd first(fd);
  {
    const UniqueFd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
  }
  EXPECT_EQ(first.get(), -1);
  EXPECT_FALSE(isOpen(fd));
}

TEST_F(UniqueFdTest, ExchangesOwnershipWhenAssigned) {
  const int replaced = openOne();
  UniqueFd target(replaced);
  {
    const int fd = openOne();
    UniqueFd source(fd);
    target = std::move(source);
    EXPECT_EQ(target.get(), fd);
    EXPECT_TRUE(isOpen(replaced));
  }
  EXPECT_FALSE(isOpen(replaced));
  EXPECT_TRUE(isOpen(target.get()));
}

}  // namespace
}  // namespace Zorbe::Test
