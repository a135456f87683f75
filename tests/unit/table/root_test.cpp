// SPDX-License-Identifier: MIT
#include "core/root.h"

#include "support/fixture.h"

#include <zorbe/table/error.h>

#include <sstream>

namespace Zorbe::Test {
namespace {

using TableRoot = ZorbeTest;

TEST_F(TableRoot, FailuresGoToStandardErrorUnlessThereIsAHandler) {
  Table::Options options;
  Brask::Platform::DebugHandler& fallback = Table::handlerOf(options);
  EXPECT_TRUE(fallback.isEnabled(0));
  EXPECT_FALSE(fallback.isEnabled(1));
  std::ostringstream message;
  message << "the disk is full";
  testing::internal::CaptureStderr();
  fallback.emit(message, 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "the disk is full\n");
  options.log = &handler;
  EXPECT_EQ(&Table::handlerOf(options), &handler);
}

TEST_F(TableRoot, IsTheDirectoryOfTheOptionsOrOfTheEnvironment) {
  Table::Options options;
  options.log = &handler;
  EXPECT_EQ(Table::resolveRoot("a/t", options).path, inRoot("a/t"));
  options.root = "/elsewhere";
  EXPECT_EQ(Table::resolveRoot("a/t", options).path, "/elsewhere/a/t");
  EXPECT_EQ(Table::resolveRoot("/a/t", options).path, "/elsewhere/a/t");
  options.root = "elsewhere";
  EXPECT_THROW(Table::resolveRoot("t", options), Table::Error);
}

}  // namespace
}  // namespace Zorbe::Test
