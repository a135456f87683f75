// SPDX-License-Identifier: MIT
//
// Files and directories that the user may not read or write, as the system calls report them.
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <cerrno>
#include <cstring>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;

class TableRights : public TableTest {
 protected:
  template <class Act>
  void expectDenied(Act act, const std::string& what) {
    try {
      act();
      ADD_FAILURE() << "was not refused";
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ErrorCode::denied);
      EXPECT_EQ(error.what(), "table 't': open() " + what +
                                  "; give this user the right, or use another root directory");
    }
  }
};

TEST_F(TableRights, ADirectoryThatMayNotBeWrittenIsNamed) {
  for (const int error : {EACCES, EROFS}) {
    Fault::arm("open", 1, error).onPath(options.place.directory);
    expectDenied([this] { openWriter(); }, options.place.directory + ": " + std::strerror(error));
  }
}

TEST_F(TableRights, ATableThatAReaderMayNotReadIsNamed) {
  put(*openWriter(), 1, 1);
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  expectDenied([this] { openReader(); }, path("slots") + ": Permission denied");
  EXPECT_EQ(get(*openReader(), 1), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
