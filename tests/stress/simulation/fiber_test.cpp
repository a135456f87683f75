// SPDX-License-Identifier: MIT
#include "stress/simulation/fiber.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string>

namespace Zorbe::Test::Simulation {
namespace {

TEST(FiberTest, ContinuesWhereItSuspended) {
  std::string order;
  Fiber* self = nullptr;
  Fiber fiber([&] {
    order += "a";
    self->suspend();
    order += "b";
  });
  self = &fiber;
  fiber.resume();
  order += "-";
  EXPECT_FALSE(fiber.finished());
  fiber.resume();
  EXPECT_TRUE(fiber.finished());
  EXPECT_EQ(order, "a-b");
}

TEST(FiberTest, BeginsWithoutAnErrnoOfOthers) {
  int inside = -1;
  Fiber fiber([&] { inside = errno; });
  errno = EIO;
  fiber.resume();
  EXPECT_EQ(inside, 0);
  EXPECT_EQ(errno, EIO);
  errno = 0;
}

TEST(FiberTest, KeepsErrnoOnBothSides) {
  int inside = 0;
  Fiber* self = nullptr;
  Fiber fiber([&] {
    errno = EXDEV;
    self->suspend();
    inside = errno;
  });
  self = &fiber;
  errno = EIO;
  fiber.resume();
  EXPECT_EQ(errno, EIO);
  errno = 0;
  fiber.resume();
  EXPECT_EQ(inside, EXDEV);
}

// Suspends while an exception unwinds the stack, as the destructor of a descriptor may.
TEST(FiberTest, KeepsExceptionsOfEachSideApart) {
  struct Suspender {
    Fiber*& fiber;
    int& uncaught;
    ~Suspender() {
      fiber->suspend();
      uncaught = std::uncaught_exceptions();
    }
  };
  int uncaught = -1;
  Fiber* self = nullptr;
  std::string caught;
  Fiber fiber([&] {
    try {
      const Suspender suspender{self, uncaught};
      throw std::runtime_error("inside");
    } catch (const std::exception& exception) {
      caught = exception.what();
    }
  });
  self = &fiber;
  fiber.resume();
  EXPECT_EQ(std::uncaught_exceptions(), 0);
  EXPECT_THROW(throw std::logic_error("outside"), std::logic_error);
  fiber.resume();
  EXPECT_EQ(uncaught, 1);
  EXPECT_EQ(caught, "inside");
}

}  // namespace
}  // namespace Zorbe::Test::Simulation
