// SPDX-License-Identifier: MIT
//
// A writer and a reader on the bundled loop, when their system calls fail.
#include "unit/table/in_loop_fixture.h"

#include "support/table_errors.h"

#include "fault/fault.h"
#include "foundation/log.h"

#include <zorbe/table/error.h>

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace Zorbe::Test {
namespace {

using Table::ErrorCode;

class InLoopFaults : public InLoop {
 protected:
  bool connects(Reader& reader) {
    return turnUntil([&] { return reader.state() == State::connected; });
  }

  bool hasLogged(int level, const std::string& text) const {
    const std::vector<std::string> texts = handler.texts(level);
    return std::count(texts.begin(), texts.end(), text) == 1;
  }
};

TEST_F(InLoopFaults, AReaderWhoseConnectionFailsTriesAgain) {
  const Writer writer("t", options);
  struct Step {
    const char* call;
    unsigned occurrence;
    int error;
  };
  for (const Step& step :
       {Step{"socket", 1, EMFILE}, Step{"fcntl", 1, EBADF}, Step{"fcntl", 2, EBADF},
        Step{"fcntl", 3, EBADF}, Step{"connect", 1, ECONNREFUSED}}) {
    SCOPED_TRACE(std::string(step.call) + " " + std::to_string(step.occurrence));
    Fault::arm(step.call, step.occurrence, step.error);
    handler.clear();
    Reader reader("t", options);
    EXPECT_EQ(reader.state(), State::orphaned);
    EXPECT_TRUE(hasLogged(
        Log::kStep, "Table::connectToWriter() " + inRoot("t") + ": " + std::strerror(step.error)));
    EXPECT_TRUE(connects(reader));
  }
}

// The thread is in another network namespace then, or has a descriptor too many.
TEST_F(InLoopFaults, AReaderThatIsLeftWithoutASocketTriesAgain) {
  const Writer writer("t", options);
  expectLeakedDescriptors(1);  // Util::socket() leaves the new one open then
  const std::string own = std::filesystem::read_symlink("/proc/self/ns/net");
  std::error_code closed;  // where process 1's may not be looked at, it is not entered
  const bool entersOwn = std::filesystem::read_symlink("/proc/1/ns/net", closed) == own;
  Fault::arm("close", entersOwn ? 2 : 1, EIO).onPath(own);
  Reader reader("t", options);
  EXPECT_EQ(reader.state(), State::orphaned);
  EXPECT_TRUE(connects(reader));
}

TEST_F(InLoopFaults, AReaderThatCannotOpenTheLogReportsItOnceAndReadsEverythingAgain) {
  Writer writer("t", options);
  writer.put(1, {10, 0});
  Reader reader("t", options);
  ASSERT_TRUE(sees(reader, 1, 10));
  kinds.clear();
  Fault::arm("open", 1, EMFILE).onPath(inRoot("t/conquer.1"));
  writer.put(1, {11, 0});
  writer.publish();
  expectError(ErrorCode::system, "open() " + inRoot("t/conquer.1") + ": Too many open files",
              [&] { drain(reader); });
  EXPECT_EQ(reader.next(), std::nullopt);  // until it looks again
  EXPECT_FALSE(reader.hasNext());
  EXPECT_EQ(reader.get(1)->a, 11);
  EXPECT_TRUE(sees(reader, 1, 11));
  EXPECT_THAT(kinds, testing::ElementsAre(Kind::reset, Kind::put, Kind::complete));
}

TEST_F(InLoopFaults, AWatchThatCannotBeSetIsTriedAgain) {
  Fault::arm("inotify_add_watch", 1, ENOSPC);
  const Writer writer("t", options);
  Reader reader("t", options);
  ASSERT_TRUE(connects(reader));
  EXPECT_TRUE(turnUntil([] { return Fault::calls("inotify_add_watch") >= 2; }));
}

TEST_F(InLoopFaults, AWriterWithoutASocketIsNone) {
  handler.allowFailures();
  Fault::arm("socket", 1, EMFILE);
  expectError(ErrorCode::system, "table 't': ", [&] { Writer("t", options); });
  EXPECT_NO_THROW(Writer("t", options));
}

TEST_F(InLoopFaults, AReaderWhoseProcessIsUnknownIsListedAllTheSame) {
  const Writer writer("t", options);
  const Reader reader("t", options);
  Fault::arm("getsockopt", 1, ENOBUFS, Fault::kForever);
  ASSERT_TRUE(turnUntil([&] { return isAccepted(reader); }));
  ASSERT_EQ(reader.status()->peers.size(), 1u);
  EXPECT_EQ(reader.status()->peers[0].pid, 0u);
  Fault::reset();
  EXPECT_TRUE(turnUntil(
      [&] { return reader.status()->peers[0].pid == static_cast<uint32_t>(::getpid()); }));
}

TEST_F(InLoopFaults, ARelativeRootWithoutAWorkingDirectoryIsAnError) {
  handler.allowFailures();
  ASSERT_EQ(::setenv("SHMEM_ROOT", "relative", 1), 0);
  options.root.clear();
  Fault::arm("getcwd", 1, ENOENT, 2);
  expectError(ErrorCode::system, "table 't': RootPath::RootPath() ", [&] { Reader("t", options); });
  expectError(ErrorCode::system, "table 't': RootPath::RootPath() ", [&] { Writer("t", options); });
}

}  // namespace
}  // namespace Zorbe::Test
