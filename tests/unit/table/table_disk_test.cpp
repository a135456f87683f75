// SPDX-License-Identifier: MIT
//
// A table on a disk that is full or read-only. Each test runs in a child with its own mount
// namespace.
#include "unit/table/table_program.h"

#include "support/child_process.h"
#include "support/small_disk.h"

#include <atomic>
#include <filesystem>
#include <set>

namespace Zorbe::Test {
namespace {

using Table::Error;
using Table::ErrorCode;
using testing::HasSubstr;

class TableDisk : public TableProgram {
 protected:
  using Records = std::map<uint32_t, int64_t>;

  /// False when there is no room; the file that lacks it is then added to `short_`.
  bool tryPut(Writer& writer, uint32_t key, int64_t value) {
    try {
      writer.put(key, {value, 0});
      expected[key] = value;
      return true;
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), ErrorCode::noSpace);
      EXPECT_EQ(error.table(), "t");
      const std::string prefix = "posix_fallocate() " + inRoot("t/");
      const std::string suffix =
          ": No space left on device; free space there, or ask for fewer records";
      const std::string text = error.detail();
      EXPECT_EQ(text.rfind(prefix, 0), 0u) << text;
      EXPECT_THAT(text, HasSubstr(suffix));
      EXPECT_THAT(error.what(), HasSubstr("table 't', key " + std::to_string(key) + ": "));
      short_.insert(text.substr(prefix.size(), text.find(':') - prefix.size()));
      return false;
    }
  }

  /// Puts new keys from `key` on. Returns the first one that there is no room for.
  uint32_t putUntilFull(Writer& writer, uint32_t key) {
    while (key < kMostKeys && tryPut(writer, key, key)) ++key;
    EXPECT_LT(key, kMostKeys);
    return key;
  }

  template <class View>
  void expectRecords(const View& view) const {
    EXPECT_EQ(view.size(), expected.size());
    for (const auto& [key, value] : expected) {
      const auto found = view.get(key);
      ASSERT_TRUE(found && found->a == value) << "key " << key;
    }
  }

  /// The reader's lookups, a view, and a copy that follows hold the records.
  void expectEverywhere(Reader& reader) {
    expectRecords(reader);
    expectRecords(reader.view());
    EXPECT_TRUE(waitUntil(reader, [&] { return copy == expected; }));
  }

  void expectNothingUnfinished() const {
    for (const auto& file : std::filesystem::directory_iterator(inRoot("t"))) {
      EXPECT_NE(file.path().extension(), ".new") << file.path();
    }
  }

  /// A writer that ends as if it was killed.
  int writeAndDie() {
    return inChild([this] {
      auto* const writer = new Writer("t", options);  // never destroyed
      for (const auto& [key, value] : expected) writer->put(key, {value, 0});
      return 0;
    });
  }

  void expectTheNextWriterGoesOn(Reader& reader) {
    Writer writer("t", options);
    expectRecords(writer);
    EXPECT_TRUE(tryPut(writer, 1, 1001));
    expectEverywhere(reader);
  }

  std::string textOfWriter(ErrorCode code) const {
    try {
      Writer writer("t", options);
    } catch (const Error& error) {
      EXPECT_EQ(error.code(), code);
      return error.what();
    }
    return "no error";
  }

  static constexpr uint32_t kMostKeys = 100'000;  // many more than 1 MiB has room for

  const SmallDisk disk{rootPath()};
  Records expected;
  std::set<std::string> short_;
};

TEST_F(TableDisk, WhenItIsFullNothingIsLostAndTheWriterGoesOn) {
  disk.run("size=1m", [this] {
    Writer writer("t", options);
    Reader reader("t", options);
    const uint32_t first = putUntilFull(writer, 0);
    EXPECT_GT(first, 1000u);
    expectEverywhere(reader);
    // What needs no room is not refused.
    EXPECT_TRUE(tryPut(writer, 0, 1000));
    EXPECT_TRUE(writer.erase(1));
    expected.erase(1);
    expectEverywhere(reader);
    EXPECT_TRUE(tryPut(writer, 1, 1001));
    EXPECT_FALSE(tryPut(writer, first, first));
    expectNothingUnfinished();
    disk.setOptions("size=4m");
    EXPECT_GT(putUntilFull(writer, first), 2 * first);
    expectEverywhere(reader);
  });
}

// The disk has a page more in each attempt, so that every file that grows is the one that does not
// fit.
TEST_F(TableDisk, GrowthThatDoesNotFitIsTriedAgainByEachPut) {
  disk.run("size=1m", [this] {
    Writer writer("t", options);
    Reader reader("t", options);
    disk.fill();
    for (uint32_t key = 0; key < 2000; ++key) {
      if (tryPut(writer, key, key)) continue;
      do {
        expectRecords(reader);
        expectNothingUnfinished();
        disk.freePage();
      } while (!HasFailure() && !tryPut(writer, key, key));
      expectRecords(reader);
      disk.fill();
    }
    expectEverywhere(reader);
    EXPECT_THAT(short_, testing::ElementsAre("buckets.new", "slots"));
  });
}

TEST_F(TableDisk, TheNextWriterNeedsNoRoomToContinue) {
  for (uint32_t key = 0; key < 1000; ++key) expected[key] = key;
  disk.run("size=1m", [this] {
    EXPECT_EQ(writeAndDie(), 0);
    disk.fill();
    options.records = options.maxRecords = 1;
    Writer writer("t", options);
    Reader reader("t", options);
    expectRecords(writer);
    EXPECT_TRUE(tryPut(writer, 1, 1001));
    expectEverywhere(reader);
  });
}

TEST_F(TableDisk, ATakeoverThatDoesNotFitIsRefusedAndLosesNothing) {
  for (uint32_t key = 0; key < 1000; ++key) expected[key] = key;
  disk.run("size=1m", [this] {
    EXPECT_EQ(writeAndDie(), 0);
    Reader reader("t", options);
    expectEverywhere(reader);
    ASSERT_EQ(::unlink(inRoot("t/buckets").c_str()), 0);  // to be made again
    disk.fill();
    for (int attempt = 0; attempt < 2; ++attempt) {
      EXPECT_THAT(textOfWriter(ErrorCode::noSpace),
                  HasSubstr("table 't': posix_fallocate() " + inRoot("t/buckets.new") +
                            ": No space left on device; free space there"));
      expectRecords(reader);
    }
    disk.relieve();
    expectTheNextWriterGoesOn(reader);
  });
}

TEST_F(TableDisk, AReadOnlyTableCanBeReadAndIsNotReplaced) {
  for (uint32_t key = 0; key < 100; ++key) expected[key] = key;
  disk.run("size=1m", [this] {
    EXPECT_EQ(writeAndDie(), 0);
    disk.makeReadOnly();
    EXPECT_THAT(textOfWriter(ErrorCode::denied),
                HasSubstr(": Read-only file system; mount the file system for writing, or use "
                          "another root directory"));
    Reader reader("t", options);
    EXPECT_EQ(reader.state(), State::orphaned);
    expectEverywhere(reader);
    disk.makeWritable();
    expectTheNextWriterGoesOn(reader);
  });
}

TEST_F(TableDisk, AReadOnlyRootWithoutTheTableIsAnErrorOfTheWriterAlone) {
  disk.run("size=1m", [this] {
    disk.makeReadOnly();
    EXPECT_EQ(textOfWriter(ErrorCode::denied),
              "table 't': mkpath() " + inRoot("t") +
                  ": Read-only file system; mount the file system for writing, or use another "
                  "root directory");
    Reader reader("t", options);
    EXPECT_EQ(reader.state(), State::waiting);
    EXPECT_EQ(reader.get(1), std::nullopt);
    EXPECT_EQ(reader.next(), std::nullopt);
    disk.makeWritable();
    Writer writer("t", options);
    EXPECT_TRUE(tryPut(writer, 1, 10));
    EXPECT_TRUE(sees(reader, 1, 10));
  });
}

// As in a container that has the root of the host mounted for reading.
TEST_F(TableDisk, AReaderFollowsAWriterWhoseRootItMayOnlyRead) {
  for (uint32_t key = 0; key < 2000; ++key) expected[key] = key;
  disk.run("size=4m", [this] {
    ChildProcess process("writer", [this](Channel& parent) {
      auto writer = std::make_unique<Writer>("t", options);
      writer->put(1, {10, 0});
      parent.send("written");
      parent.await("grow");
      for (const auto& [key, value] : expected) writer->put(key, {value, 0});
      parent.await("replace");
      writer.reset();
      std::filesystem::remove_all(inRoot("t"));
      writer = std::make_unique<Writer>("t", options);
      writer->put(3, {30, 0});
      parent.await("end");
    });
    process.await("written");
    disk.makeReadOnlyHere();
    EXPECT_THROW(std::filesystem::create_directory(inRoot("other")),
                 std::filesystem::filesystem_error);
    Reader reader("t", options);
    EXPECT_TRUE(sees(reader, 1, 10));
    EXPECT_TRUE(waitUntil(reader, [&] { return reader.state() == State::connected; }));
    process.send("grow");
    EXPECT_TRUE(waitUntil(reader, [&] { return copy == expected; }));
    expectRecords(reader);
    process.send("replace");
    EXPECT_TRUE(waitUntil(reader, [&] { return copy == Records{{3, 30}}; }));
    process.send("end");
    EXPECT_EQ(process.finish(), 0);
  });
}

/// Counts the messages about a full disk, from any thread.
class FullDiskMessages : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int level) override { return level <= 0; }
  void emit(std::ostringstream& message, int) override {
    if (message.str().find("No space left on device") != std::string::npos) ++count;
  }

  std::atomic<unsigned> count{0};
};

// The removed files keep their room for as long as the writer has them.
TEST_F(TableDisk, ARemovedTableIsMadeAgainWhenThereIsRoomForIt) {
  FullDiskMessages messages;
  disk.run("size=1m", [&] {
    options.log = &messages;
    Writer writer("t", options);
    for (uint32_t key = 0; key < 1000; ++key) ASSERT_TRUE(tryPut(writer, key, key));
    Reader reader("t", options);
    expectEverywhere(reader);
    std::filesystem::remove_all(inRoot("t"));
    disk.fill();
    EXPECT_TRUE(waitUntil(reader, [&] { return messages.count != 0; }));
    EXPECT_TRUE(tryPut(writer, 1, 1001));
    expectEverywhere(reader);
    const uint64_t incarnation = reader.info().incarnation;
    disk.relieve();
    EXPECT_TRUE(waitUntil(reader, [&] { return reader.info().incarnation != incarnation; }));
    EXPECT_EQ(messages.count, 1u);
    EXPECT_TRUE(tryPut(writer, 2, 1002));
    disk.fill();
    putUntilFull(writer, 1000);
    EXPECT_THAT(short_, testing::ElementsAre("slots"));
    expectEverywhere(reader);
  });
}

}  // namespace
}  // namespace Zorbe::Test
