// SPDX-License-Identifier: MIT
//
// A reader that asks for files of one user.
#include "support/table_fixture.h"

#include "fault/fault.h"

#include <sys/stat.h>
#include <unistd.h>

namespace Zorbe::Test {
namespace {

using Table::TableReader;

ino_t givenAway = 0;

int fstatOfAnotherUser(int fd, struct stat* status) {
  const Fault::Bypass bypass;
  const int result = ::fstat(fd, status);
  if (status->st_ino == givenAway) ++status->st_uid;
  return result;
}

class OwnerTest : public TableTest {
 protected:
  // This file belongs to another user from now on, and no other file does.
  void giveAway(const char* file) {
    struct stat status {};
    ASSERT_EQ(::stat(path(file).c_str(), &status), 0);
    givenAway = status.st_ino;
    Fault::divert("fstat", fstatOfAnotherUser);
  }
};

TEST_F(OwnerTest, AnotherOwnerOfAnyFileIsNamed) {
  put(*openWriter(), 1, 10);
  const uid_t own = ::geteuid();
  const auto error = [&](const char* file) {
    return "table 't': " + path(file) + " belongs to user " + std::to_string(own + 1) +
           " and not to " + std::to_string(own) + "; see Options::owner";
  };
  Table::ReaderOptions reading{options.place, {}};
  reading.place.owner = own;
  const auto reader = TableReader::open(reading);
  ASSERT_NE(reader, nullptr);
  for (const char* file : {"slots", "buckets"}) {
    giveAway(file);
    EXPECT_EQ(errorOf([&] { TableReader::open(reading); }), error(file));
    EXPECT_NE(openReader(), nullptr);  // asks for nobody
  }
  giveAway("conquer.1");
  EXPECT_EQ(errorOf([&] { static_cast<void>(reader->openLog(1)); }), error("conquer.1"));
  EXPECT_NE(TableReader::open(reading), nullptr);
}

}  // namespace
}  // namespace Zorbe::Test
