// SPDX-License-Identifier: MIT
#include "core/root.h"

#include "support/fixture.h"
#include "support/table_errors.h"

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
  EXPECT_EQ(errorOf([&] { Table::resolveRoot("t", options); }),
            "table 't': Options::root is not an absolute path");
}

TEST_F(TableRoot, ANameIsAsLongAsAnAddressAllows) {
  Table::Options options;
  options.log = &handler;
  const std::string longest(91, 'n');
  EXPECT_EQ(Table::resolveRoot(longest, options).path, inRoot(longest));
  EXPECT_EQ(Table::resolveRoot("a/" + longest, options).path, inRoot("a/" + longest));
  for (const std::string& name :
       {longest + "n", "a/" + longest + "n", std::string("a/"), std::string()}) {
    EXPECT_EQ(errorOf([&] { Table::resolveRoot(name, options); }),
              (name.empty() ? "" : "table '" + name + "': ") +
                  "the last component of a table's name has 1 to 91 bytes");
  }
}

}  // namespace
}  // namespace Zorbe::Test
