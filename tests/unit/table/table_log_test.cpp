// SPDX-License-Identifier: MIT
//
// What a table on the bundled loop logs, word by word.
#include "unit/table/damage.h"
#include "unit/table/in_loop_fixture.h"

#include "memory/layout.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace Zorbe::Test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class TableLog : public InLoop {
 protected:
  // Those that begin so, so far.
  std::vector<Message> messagesOf(const std::string& begin) const {
    std::vector<Message> found;
    for (const Message& message : handler.messages()) {
      if (message.text.compare(0, begin.size(), begin) == 0) found.push_back(message);
    }
    return found;
  }

  std::string slots() const { return inRoot("t/slots"); }
  const std::string root_ = inRoot("t");
};

TEST_F(TableLog, AWriterSaysWhatItContinues) {
  {
    Writer writer("t", options);
    EXPECT_THAT(
        messagesOf("WriterCore::"),
        ElementsAre(Logged(2, "WriterCore::logStart() " + root_ + " records:0 sequence:0")));
    writer.put(1, {10, 0});
    writer.put(2, {20, 0});
    writer.erase(2);
  }
  handler.clear();
  const Writer writer("t", options);
  EXPECT_THAT(messagesOf("WriterCore::"),
              ElementsAre(Logged(2, "WriterCore::logStart() " + root_ + " records:1 sequence:3")));
}

TEST_F(TableLog, AWriterSaysWhyItReplacesATable) {
  { const Writer writer("t", options); }
  overwriteWord(slots(), offsetof(Table::Prologue, bootLow), 1);
  handler.clear();
  const Writer writer("t", options);
  EXPECT_THAT(messagesOf("WriterCore::"),
              ElementsAre(Logged(1, "WriterCore::logStart() replaced " + root_ +
                                        ": it was written before the machine restarted")));
}

TEST_F(TableLog, AWriterSaysThatItMakesItsFilesAgain) {
  const Writer writer("t", options);
  handler.clear();
  std::filesystem::remove_all(root_);
  EXPECT_TRUE(turnUntil([&] { return std::filesystem::exists(slots()); }));
  EXPECT_THAT(messagesOf("WriterCore::"),
              ElementsAre(Logged(1, "WriterCore::logStart() replaced " + root_ +
                                        ": its files were removed or replaced")));
}

TEST_F(TableLog, AReaderNamesTheTableThatItHasFound) {
  const Writer writer("t", options);
  const Reader reader("t", options);
  EXPECT_THAT(messagesOf("ReaderCore::"),
              ElementsAre(Logged(2, "ReaderCore::adopt() " + root_ + " incarnation:" +
                                        std::to_string(reader.info().incarnation))));
}

TEST_F(TableLog, AReaderSaysThatNobodyWrites) {
  { const Writer writer("t", options); }
  const Reader reader("t", options);
  EXPECT_THAT(messagesOf("Table::"),
              ElementsAre(Logged(
                  5, "Table::connectToWriter() " + root_ + ": " + std::strerror(ECONNREFUSED))));
}

TEST_F(TableLog, AReaderSaysOnceWhyItCannotRead) {
  const Table::LoopWriter<uint32_t, int64_t> writer("t", options);
  Reader reader("t", options);
  const std::string why =
      "its records have another description:\nkey key u4 0\nvalue value i8 0\n"
      "instead of this program's\nkey key u4 0\nvalue a i8 0\nvalue b i4 8\n"
      "build this program with the table's fields, or with the first of them";
  EXPECT_THAT(messagesOf("ReaderCore::"),
              ElementsAre(Logged(1, "ReaderCore::keepTrouble() " + root_ + ": table 't': " + why)));
  EXPECT_THROW(reader.next(), Table::Error);
  handler.clear();
  for (int look = 0; look < 3; ++look) EXPECT_FALSE(reader.refresh());
  EXPECT_THAT(messagesOf("ReaderCore::"), IsEmpty());
  EXPECT_EQ(reader.next(), std::nullopt);
}

TEST_F(TableLog, AWriterSaysOnceThatItCannotMakeItsDirectory) {
  handler.expectFailures();
  const Writer writer("t", options);
  std::filesystem::remove_all(root_);
  ASSERT_EQ(::close(::creat(root_.c_str(), 0644)), 0);
  EXPECT_TRUE(turnUntil([&] { return !handler.texts(0).empty(); }));
  EXPECT_THAT(
      messagesOf("WriterCore::keep"),
      ElementsAre(Logged(0, "WriterCore::keep() " + root_ + " table 't': mkpath() " + root_ +
                                ": Not a directory; something else has this name: remove "
                                "it, or use another root directory")));
}

}  // namespace
}  // namespace Zorbe::Test
