// SPDX-License-Identifier: MIT
//
// Options and places with which no table can be made: each is an error that names the table and
// says what to do.
#include <zorbe/table/in_loop.h>

#include "support/table_fixture.h"

#include "support/record.h"

#include <brask/linux/event_loop.h>
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;

class TableOptions : public TableTest {
 protected:
  /// What `act` throws: code and text.
  template <class Act>
  static std::pair<ErrorCode, std::string> errorOf(Act act) {
    try {
      act();
    } catch (const Error& error) {
      return {error.code(), error.what()};
    }
    return {ErrorCode::closed, "nothing was thrown"};
  }

  /// Stores a word in the header of `slots`.
  void overwrite(off_t at, uint64_t word) const {
    const int fd = ::open(path("slots").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(::pwrite(fd, &word, sizeof word, at), static_cast<ssize_t>(sizeof word));
    EXPECT_EQ(::close(fd), 0);
  }

  std::pair<ErrorCode, std::string> errorOfOpening() {
    return errorOf([this] { openWriter(); });
  }
};

TEST_F(TableOptions, MoreRecordsThanATableCanHaveAreRefused) {
  options.records = uint64_t{1} << 58;  // times 64 bytes: 0 bytes in 64 bits
  EXPECT_EQ(errorOfOpening(),
            std::pair(ErrorCode::usage, std::string("table 't': Options::records is "
                                                    "288230376151711744; it may be 3000000000 at "
                                                    "most")));
  options.records = 16;
  options.maxRecords = SIZE_MAX;
  EXPECT_EQ(errorOfOpening().first, ErrorCode::usage);
  options.maxRecords = 0;
  options.logEntries = (uint64_t{1} << 30) + 1;
  EXPECT_EQ(errorOfOpening().first, ErrorCode::usage);
  EXPECT_TRUE(std::filesystem::is_empty(options.place.directory));
  options.logEntries = 0;
  EXPECT_NO_THROW(openWriter());
}

TEST_F(TableOptions, ANameOfTheKeyThatTheDescriptionCannotHoldIsRefused) {
  Brask::Linux::EventLoop loop;
  Table::Options names;
  names.root = rootPath();
  for (const char* name : {"", "my key", "key\n", "\x7f"}) {
    names.keyName = name;
    const auto write = [&] { Table::LoopWriter<int, Record> writer("named", names); };
    const auto read = [&] { Table::LoopReader<int, Record> reader("named", names); };
    const std::string text =
        "table 'named': '" + names.keyName +
        "' is no name for a field, or for Options::keyName: use one without blanks";
    EXPECT_EQ(errorOf(write), std::pair(ErrorCode::usage, text));
    EXPECT_EQ(errorOf(read), std::pair(ErrorCode::usage, text));
  }
  EXPECT_FALSE(std::filesystem::exists(inRoot("named")));
}

TEST_F(TableOptions, AnotherThingWithTheNameOfTheFileIsNamed) {
  std::filesystem::create_directory(path("slots"));
  EXPECT_EQ(errorOfOpening(),
            std::pair(ErrorCode::system,
                      "table 't': rename() " + path("slots") +
                          ": Is a directory; something else has this name: remove it, or use "
                          "another root directory"));
}

TEST_F(TableOptions, AFileInThePlaceOfTheRootIsNamed) {
  Brask::Linux::EventLoop loop;
  Table::Options below;
  below.root = inRoot("file");
  std::ofstream(below.root).close();
  const auto write = [&] { Table::LoopWriter<int, Record> writer("x", below); };
  EXPECT_EQ(errorOf(write),
            std::pair(ErrorCode::system,
                      "table 'x': mkpath() " + below.root +
                          "/x: Not a directory; something else has this name: remove it, or use "
                          "another root directory"));
}

// Words of the header of `slots`.
constexpr off_t kByteOrderAt = 8;
constexpr off_t kVersionAt = 16;

TEST_F(TableOptions, FilesOfAnotherVersionOrByteOrderAreNamed) {
  const auto textFor = [&](const std::string& cause) {
    return std::pair(ErrorCode::version, "table 't': " + path("slots") + cause +
                                             "; remove it, or use another root directory");
  };
  const auto expectError = [&](const std::string& cause) {
    EXPECT_EQ(errorOfOpening(), textFor(cause));
    EXPECT_EQ(errorOf([this] { openReader(); }), textFor(cause));
  };
  put(*openWriter(), 1, 1);
  overwrite(kVersionAt, 2);
  expectError(" has version 2 instead of 1");
  overwrite(kVersionAt, 1);
  overwrite(kByteOrderAt, 0x0807060504030201);
  expectError(" was written by a host of the other byte order");
  options.replaceOtherSchema = true;
  EXPECT_EQ(openWriter()->size(), 0u);
}

TEST_F(TableOptions, TheEntriesOfTheLogAreAPowerOfTwo) {
  for (const auto& [wanted, entries] :
       {std::pair(1u, 4u), std::pair(4u, 4u), std::pair(5u, 8u), std::pair(64u, 64u)}) {
    options.logEntries = wanted;
    EXPECT_EQ(openWriter()->log().entries(), entries) << wanted;
    std::filesystem::remove_all(options.place.directory);
    std::filesystem::create_directory(options.place.directory);
  }
}

TEST_F(TableOptions, ATableWithAllSlotsOfItsFormatIsFull) {
  options.maxSlots = 20;
  const auto writer = openWriter();
  for (uint64_t key = 0; key < 20; ++key) put(*writer, key, key);
  EXPECT_EQ(errorOf([&] { put(*writer, 20, 20); }),
            std::pair(ErrorCode::full, std::string("table 't': it has 20 slots, the most that its "
                                                   "format allows")));
  put(*writer, 5, 55);
  for (uint64_t key = 0; key < 20; ++key) EXPECT_EQ(get(*writer, key), key == 5 ? 55 : key);
  EXPECT_EQ(writer->capacity(), 20u);
}

TEST_F(TableOptions, ASmallerLimitKeepsTheRecordsThatAreThere) {
  {
    const auto writer = openWriter();
    fill(*writer, 10);
  }
  options.records = options.maxRecords = 5;
  const auto writer = openWriter();
  EXPECT_EQ(writer->size(), 10u);
  put(*writer, 3, 33);
  EXPECT_EQ(errorOf([&] { put(*writer, 10, 10); }).first, ErrorCode::full);
  for (uint64_t key = 0; key < 10; ++key) EXPECT_EQ(get(*writer, key), key == 3 ? 33 : key);
}

TEST_F(TableOptions, HintsForTheMappingChangeNothingElse) {
  options.hints = {true, true};
  const auto writer = openWriter();
  const auto reader = Table::TableReader::open({options.place, options.hints});
  fill(*writer, 1000);
  for (uint64_t key = 0; key < 1000; ++key) ASSERT_EQ(get(*reader, key), key);
}

}  // namespace
}  // namespace Zorbe::Test
