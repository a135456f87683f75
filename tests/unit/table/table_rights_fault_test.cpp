// SPDX-License-Identifier: MIT
//
// Files and directories that the user may not read or write, as the system calls report them.
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <cerrno>

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
      EXPECT_EQ(error.what(), "table 't': open() " + what + ", or use another root directory");
    }
  }
};

TEST_F(TableRights, ADirectoryThatMayNotBeWrittenIsNamed) {
  const std::string& directory = options.place.directory;
  Fault::arm("open", 1, EACCES).onPath(directory);
  expectDenied([this] { openWriter(); },
               directory + ": Permission denied; give this user the right");
  Fault::arm("open", 1, EROFS).onPath(directory);
  expectDenied([this] { openWriter(); },
               directory + ": Read-only file system; mount the file system for writing");
}

TEST_F(TableRights, ATableThatAReaderMayNotReadIsNamed) {
  put(*openWriter(), 1, 1);
  Fault::arm("open", 1, EACCES).onPath(path("slots"));
  expectDenied([this] { openReader(); },
               path("slots") + ": Permission denied; give this user the right");
  EXPECT_EQ(get(*openReader(), 1), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
