// SPDX-License-Identifier: MIT
//
// What opening a table says, word by word.
#include "unit/table/damage.h"

#include "support/table_fixture.h"

#include "fault/fault.h"

#include <zorbe/exceptions.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

namespace Zorbe::Test {
namespace {

using Table::SlotsHeader;
using Table::TableReader;
using Table::TableWriter;

class OpeningTest : public TableTest {
 protected:
  void makeTable() {
    static_cast<void>(::unlink(path("slots").c_str()));
    put(*openWriter(), 1, 10);
  }

  std::string errorOfOpening() {
    return errorOf([this] { openWriter(); });
  }
  std::string errorOfReading() {
    return errorOf([this] { openReader(); });
  }

  std::string whyReplaced() {
    const auto table = openWriter();
    EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
    return table->whyReplaced();
  }

  std::string corrupt(const std::string& what) const {
    return "table 't' in " + options.place.directory + ": " + what;
  }
};

TEST_F(OpeningTest, ALockedTableIsRefused) {
  const std::string text =
      "table 't': " + path("slots") +
      " is locked: another process writes this table, perhaps by another name of its directory, "
      "or a reader has locked it";
  const auto table = openWriter();
  EXPECT_EQ(errorOfOpening(), text);
}

TEST_F(OpeningTest, SizesThatCannotBeAreRefused) {
  const uint64_t most = 3'000'000'000;
  const auto refused = [](const std::string& option, uint64_t value, uint64_t limit) {
    return "table 't': Options::" + option + " is " + std::to_string(value) + "; it may be " +
           std::to_string(limit) + " at most";
  };
  options.records = most + 1;
  EXPECT_EQ(errorOfOpening(), refused("records", most + 1, most));
  options.records = 1;
  options.maxRecords = most + 1;
  EXPECT_EQ(errorOfOpening(), refused("maxRecords", most + 1, most));
  options.maxRecords = most;
  options.logEntries = (uint64_t{1} << 30) + 1;
  EXPECT_EQ(errorOfOpening(), refused("logEntries", (uint64_t{1} << 30) + 1, uint64_t{1} << 30));
  options.logEntries = 4;
  EXPECT_EQ(errorOfOpening(), "nothing was thrown");
}

TEST_F(OpeningTest, AFullTableSaysHowManyRecordsItHolds) {
  options.maxRecords = 3;
  const auto table = openWriter();
  for (uint64_t key = 0; key < 3; ++key) put(*table, key, key);
  EXPECT_EQ(errorOf([&] { put(*table, 3, 3); }),
            "table 't': it holds 3 records, which is Options::maxRecords; erase records or raise "
            "the limit");
}

TEST_F(OpeningTest, AnotherDescriptionIsShown) {
  makeTable();
  const std::string text = "its records have another description, in " + path("slots") +
                           ":\nkey u8 0\nvalue V42 8\ninstead of this program's\n";
  options.schema.description = "key i8 0\n";
  EXPECT_EQ(errorOfOpening(), "table 't': " + text +
                                  "key i8 0\nset Options::replaceOtherSchema to replace the table");
  options.replaceOtherSchema = true;
  EXPECT_EQ(whyReplaced(), text + "key i8 0\n");
}

TEST_F(OpeningTest, OtherSizesOfKeyOrValueAreAnotherDescription) {
  makeTable();
  options.schema.valueBytes = 43;
  EXPECT_THAT(errorOfOpening(), testing::HasSubstr("another description"));
  options.schema.valueBytes = kValueBytes;
  options.schema.keyBytes = 7;
  EXPECT_THAT(errorOfOpening(), testing::HasSubstr("another description"));
  options.schema.keyBytes = 8;
  EXPECT_EQ(openWriter()->start(), TableWriter::Start::kContinued);
}

TEST_F(OpeningTest, WhyATableIsReplacedIsKept) {
  EXPECT_EQ(openWriter()->whyReplaced(), "");
  overwriteWord(path("slots"), offsetof(Table::Prologue, magic), 0);
  EXPECT_EQ(errorOfReading(), "nothing was thrown");
  EXPECT_EQ(openReader(), nullptr);
  EXPECT_EQ(whyReplaced(), "its first writer was ended before it was complete");
  overwriteWord(path("slots"), offsetof(Table::Prologue, bootLow), 1);
  EXPECT_EQ(openReader(), nullptr);
  EXPECT_EQ(whyReplaced(), "it was written before the machine restarted");
  ASSERT_EQ(::truncate(path("slots").c_str(), 0), 0);
  EXPECT_EQ(openReader(), nullptr);
  EXPECT_EQ(whyReplaced(), "its first writer was ended before it was complete");
  ASSERT_EQ(::truncate(path("slots").c_str(), 33087), 0);
  const std::string shorter = corrupt(path("slots") + " is shorter than its header");
  EXPECT_EQ(errorOfReading(), shorter);
  EXPECT_EQ(whyReplaced(), shorter);
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  ASSERT_EQ(::symlink("/dev/null", path("slots").c_str()), 0);
  EXPECT_EQ(whyReplaced(), corrupt(path("slots") + " is not a regular file"));
  auto table = openWriter();
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  table = table->recreate();
  EXPECT_EQ(table->whyReplaced(), "its files were removed or replaced");
  EXPECT_EQ(table->start(), TableWriter::Start::kReplaced);
}

TEST_F(OpeningTest, NumbersThatContradictTheFileAreNamed) {
  const auto errorWith = [this](const char* file, size_t offset, uint64_t word) {
    makeTable();
    overwriteWord(path(file), offset, word);
    return errorOfReading();
  };
  const auto sizes = [this](const std::string& numbers) {
    return corrupt(path("slots") + " has " + numbers);
  };
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, keyBytes), 0),
            sizes("keys of 0 bytes, values of 42 and a description of 21"));
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, keyBytes), 1025),
            sizes("keys of 1025 bytes, values of 42 and a description of 21"));
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, valueBytes), (1u << 20) + 1),
            sizes("keys of 8 bytes, values of 1048577 and a description of 21"));
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, descriptionBytes), 2048 * 8 + 1),
            sizes("keys of 8 bytes, values of 42 and a description of 16385"));
  const auto slots = [this](const std::string& count) {
    return corrupt(path("slots") + " tells of " + count + " slots in a file of 38912 bytes");
  };
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, capacity), 0), slots("0"));
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, capacity), 17), slots("17"));
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, capacity), 16), "nothing was thrown");
  EXPECT_EQ(errorWith("slots", offsetof(SlotsHeader, capacity), 1), "nothing was thrown");
  const size_t size = offsetof(Table::Prologue, size);
  const auto buckets = [this](const std::string& count) {
    return corrupt(path("buckets") + " tells of " + count + " buckets in a file of 320 bytes");
  };
  EXPECT_EQ(errorWith("buckets", size, 0), buckets("0"));
  EXPECT_EQ(errorWith("buckets", size, 23), buckets("23"));
  EXPECT_EQ(errorWith("buckets", size, 32), buckets("32"));
  EXPECT_EQ(errorWith("buckets", size, uint64_t{1} << 61), buckets("2305843009213693952"));
  EXPECT_EQ(errorWith("buckets", size, 24), "nothing was thrown");
  EXPECT_EQ(errorWith("buckets", size, 8), "nothing was thrown");
}

TEST_F(OpeningTest, ALogThatContradictsItselfIsNamed) {
  const auto errorWith = [this](uint64_t size) {
    makeTable();
    overwriteWord(path("conquer.1"), offsetof(Table::Prologue, size), size);
    const auto reader = openReader();
    return errorOf([&] { static_cast<void>(reader->openLog(1)); });
  };
  const auto entries = [this](const std::string& count) {
    return corrupt(path("conquer.1") + " tells of " + count + " entries in a file of 640 bytes");
  };
  EXPECT_EQ(errorWith(0), entries("0"));
  EXPECT_EQ(errorWith(63), entries("63"));
  EXPECT_EQ(errorWith(128), entries("128"));
  EXPECT_EQ(errorWith(uint64_t{1} << 61), entries("2305843009213693952"));
  EXPECT_EQ(errorWith(64), "nothing was thrown");
  EXPECT_EQ(errorWith(1), "nothing was thrown");
}

TEST_F(OpeningTest, AFileThatIsMostlyHolesIsNamed) {
  const auto errorWith = [this](const char* file, uint64_t size) {
    makeTable();
    EXPECT_EQ(::truncate(path(file).c_str(), off_t{1} << 24), 0);
    overwriteWord(path(file), offsetof(Table::Prologue, size), size);
    return errorOfReading();
  };
  EXPECT_EQ(errorWith("buckets", 1 << 20), corrupt(path("buckets") + " is mostly holes"));
  EXPECT_EQ(errorWith("buckets", 24), "nothing was thrown");
  makeTable();
  ASSERT_EQ(::truncate(path("slots").c_str(), off_t{1} << 24), 0);
  overwriteWord(path("slots"), offsetof(SlotsHeader, capacity), 10'000);
  EXPECT_EQ(errorOfReading(), corrupt(path("slots") + " is mostly holes"));
}

TEST_F(OpeningTest, AFileOfAnotherTableIsNone) {
  makeTable();
  const size_t words[] = {offsetof(Table::Prologue, magic), offsetof(Table::Prologue, incarnation),
                          offsetof(Table::Prologue, bootLow), offsetof(Table::Prologue, bootHigh)};
  const auto reader = openReader();
  EXPECT_TRUE(reader->openLog(1).has_value());
  EXPECT_FALSE(reader->openLog(2).has_value());
  EXPECT_FALSE(reader->openLog(3).has_value());
  for (const size_t offset : words) {
    const uint64_t log = overwriteWord(path("conquer.1"), offset, 0);
    EXPECT_FALSE(reader->openLog(1).has_value());
    overwriteWord(path("conquer.1"), offset, log);
    const uint64_t index = overwriteWord(path("buckets"), offset, 0);
    EXPECT_EQ(openReader(), nullptr);
    overwriteWord(path("buckets"), offset, index);
    EXPECT_NE(openReader(), nullptr);
  }
  for (const char* file : {"conquer.1", "buckets"}) {
    ASSERT_EQ(::truncate(path(file).c_str(), 63), 0);
  }
  EXPECT_FALSE(reader->openLog(1).has_value());
  EXPECT_EQ(openReader(), nullptr);
}

TEST_F(OpeningTest, AReaderOpensATableAgainThatIsReplacedMeanwhile) {
  makeTable();
  Fault::before("open", 3, [this] { makeTable(); });  // of `buckets`
  const auto reader = openReader();
  ASSERT_NE(reader, nullptr);
  EXPECT_EQ(get(*reader, 1), 10u);
}

TEST_F(OpeningTest, ANewFileThatCannotBeMadeIsNamed) {
  const auto table = openWriter();
  ASSERT_EQ(::unlink(path("buckets").c_str()), 0);
  Fault::arm("open", 1, EEXIST).onPath(path("buckets.new"));
  EXPECT_EQ(errorOf([&] { table->restoreFiles(); }),
            "table 't': open() " + path("buckets.new") +
                ": File exists; something else has this name: remove it, or use another root "
                "directory");
  Fault::arm("posix_fallocate", 1, ENOSPC);
  EXPECT_THAT(errorOf([&] { table->restoreFiles(); }),
              testing::StartsWith("table 't': posix_fallocate() " + path("buckets.new") + ": "));
  EXPECT_EQ(::access(path("buckets.new").c_str(), F_OK), -1);
}

TEST_F(OpeningTest, ATableThatIsReplacedIsRetired) {
  const auto table = openWriter();
  put(*table, 1, 10);
  const auto reader = openReader();
  EXPECT_FALSE(reader->isRetired());
  ASSERT_EQ(::unlink(path("slots").c_str()), 0);
  table->setOrigin(Table::Origin::mirrored);
  const auto next = table->recreate();
  EXPECT_TRUE(reader->isRetired());
  const auto after = openReader();
  EXPECT_FALSE(after->isRetired());
  EXPECT_NE(after->incarnation(), reader->incarnation());
  EXPECT_EQ(Table::relaxed(after->header().origin), Table::relaxed(reader->header().origin));
  EXPECT_EQ(next->log().first(), 2u);
  EXPECT_EQ(after->published(), 1u);
}

}  // namespace
}  // namespace Zorbe::Test
