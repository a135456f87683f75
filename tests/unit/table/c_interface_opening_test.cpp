// SPDX-License-Identifier: MIT
//
// The options of the table's interface in C, and writers that cannot write.
#include "unit/table/c_table.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace Zorbe::Test {
namespace {

using COpening = CInterface;

TEST_F(COpening, ThereIsOneWriter) {
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  uint32_t pid = 7;
  const char* owner = nullptr;
  EXPECT_EQ(zorbe_duplicate(writer, &pid, &owner), ZORBE_NOT_FOUND);
  EXPECT_EQ(pid, 7u);
  CTable second;
  EXPECT_EQ(openWriter(second), ZORBE_E_DUPLICATE);
  EXPECT_STRNE(zorbe_error_text(second), "");
  EXPECT_EQ(zorbe_duplicate(second, &pid, &owner), 0);
  EXPECT_EQ(pid, static_cast<uint32_t>(::getpid()));
  EXPECT_EQ(std::string(owner), std::filesystem::read_symlink("/proc/self/exe"));
  EXPECT_EQ(zorbe_duplicate(second, nullptr, nullptr), 0);
  EXPECT_EQ(put(second, 1, 1), ZORBE_E_CLOSED);
}

TEST_F(COpening, AFullTableSaysSo) {
  options.records = options.max_records = 1;
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  EXPECT_EQ(put(writer, 1, 10), 0);
  expectFailure(writer, put(writer, 2, 20), ZORBE_E_FULL, "table 't', key 2: ");
  EXPECT_EQ(put(writer, 1, 11), 0);
}

TEST_F(COpening, OptionsReachTheTable) {
  options.mode = 0600;
  options.log_entries = 4096;
  options.records = 5000;
  options.flags = ZORBE_POPULATE | ZORBE_HUGE_PAGES;
  CTable writer;
  ASSERT_EQ(openWriter(writer), 0);
  const auto permissions = std::filesystem::status(inRoot("t/slots")).permissions();
  EXPECT_EQ(static_cast<unsigned>(permissions), 0600u);
  EXPECT_GE(std::filesystem::file_size(inRoot("t/conquer.1")), 4096u * 8);
  EXPECT_GE(std::filesystem::file_size(inRoot("t/slots")), 5000u * 64);
  CTable reader;
  EXPECT_EQ(openReader(reader), 0);
  EXPECT_NE(zorbe_fields(reader, nullptr), nullptr);
  options.log_entries = uint64_t{1} << 40;
  writer.close();
  expectFailure(writer, openWriter(writer), ZORBE_E_USAGE, "Options::logEntries is");
}

TEST_F(COpening, MessagesGoToTheProgram) {
  struct Log {
    std::vector<std::string> lines;
    int highest = -1;
  } log;
  options.log = [](void* context, int level, const char* text) {
    auto& to = *static_cast<Log*>(context);
    to.lines.emplace_back(text);
    to.highest = std::max(to.highest, level);
  };
  options.log_context = &log;
  options.log_level = 2;
  {
    CTable writer;
    ASSERT_EQ(openWriter(writer), 0);
  }
  EXPECT_THAT(log.lines, testing::Contains(testing::HasSubstr("WriterCore::logStart()")));
  EXPECT_EQ(log.highest, 2);
  log.lines.clear();
  options.log_level = 0;
  {
    CTable writer;
    ASSERT_EQ(openWriter(writer), 0);
  }
  EXPECT_THAT(log.lines, testing::IsEmpty());
}

TEST_F(COpening, AnExceptionOfALogFunctionIsAnError) {
  options.log_level = 2;
  options.log = [](void*, int, const char*) { throw 7; };
  CTable writer;
  expectFailure(writer, openWriter(writer), ZORBE_E_SYSTEM, "none of the standard library's");
  options.log = [](void*, int, const char*) { throw std::runtime_error("no room for messages"); };
  expectFailure(writer, openWriter(writer), ZORBE_E_SYSTEM, "no room for messages");
}

}  // namespace
}  // namespace Zorbe::Test
