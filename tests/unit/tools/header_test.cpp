// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "memory/layout.h"
#include "support/file_content.h"
#include "unit/tools/ready_made.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;
using testing::Not;

class ZorbeHeader : public ReadyMade {
 protected:
  static Json shown(const std::string& table) {
    const Outcome run = zorbe({"show", "--json", table});
    EXPECT_EQ(run.status, 0) << run.err;
    return run.json()["header"];
  }

  /// A table of three records without a writer.
  void makeThree() {
    Writer writer("t");
    fill(writer, 3);
  }

  /// Overwrites a word of the file `slots`.
  void store(size_t offset, uint64_t word) {
    const Descriptor file(open(inRoot("t/slots").c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ(pwrite(file.get(), &word, sizeof word, static_cast<off_t>(offset)),
              static_cast<ssize_t>(sizeof word));
  }

  static int count(const std::string& text, const std::string& words) {
    int found = 0;
    for (size_t at = text.find(words); at != std::string::npos; at = text.find(words, at + 1)) {
      ++found;
    }
    return found;
  }

  static std::string problem() {
    const Json header = shown("t");
    EXPECT_TRUE(header.contains("problem")) << header;
    return header.value("problem", "");
  }
};

TEST_F(ZorbeHeader, SaysWhatTheTableHolds) {
  Table::Options options;
  options.records = 8;
  options.maxRecords = 20;
  Writer writer("t", options);
  fill(writer, 5);
  writer.erase(0);
  writer.setOrigin(Table::Origin::mirrored);
  writer.publish();
  const Json header = shown("t");
  EXPECT_EQ(header["records"], 4);
  EXPECT_EQ(header["slots"], 8);
  EXPECT_EQ(header["max_records"], 20);
  EXPECT_EQ(header["published"], 6);
  EXPECT_EQ(header["key_bytes"], 8);
  EXPECT_EQ(header["value_bytes"], 8);
  EXPECT_EQ(header["fields"], "key key u8 0\nvalue value u8 0\n");
  EXPECT_EQ(header["origin"], "mirrored");
  EXPECT_EQ(header["of_this_boot"], true);
  EXPECT_THAT(header["published_at"].get<std::string>(), testing::MatchesRegex("20.*T.*Z"));
}

TEST_F(ZorbeHeader, CountsTheRecordsOfLargeSlotsToo) {
  Table::Writer<uint64_t, Table::Text<5000>> writer("t");
  for (uint64_t key = 0; key < 30; ++key) writer.put(key, "text");
  writer.erase(7);
  EXPECT_EQ(shown("t")["records"], 29);
}

TEST_F(ZorbeHeader, IsPartOfTheTextAndOfTheList) {
  Writer writer("t");
  fill(writer, 3);
  const std::string text = zorbe({"show", "t"}).out;
  EXPECT_THAT(text, HasSubstr("records      3, in 1024 slots\n"));
  EXPECT_THAT(text, HasSubstr("published    sequence 3, 20"));
  EXPECT_THAT(text, HasSubstr("value  value  u8         0\n"));
  EXPECT_EQ(listed("t")["header"]["records"], 3);
}

TEST_F(ZorbeHeader, ATableOfAnotherKindHasNone) {
  makeTable("empty");
  writeFile(makeTable("own") + "/slots", std::string(100000, 'x'));
  EXPECT_EQ(shown("empty"), nullptr);
  EXPECT_EQ(shown("own"), nullptr);
}

TEST_F(ZorbeHeader, TheReadersOfAWriterThatHasEndedAreNotShown) {
  makeThree();
  EXPECT_EQ(shown("t")["records"], 3);
  EXPECT_EQ(shown("t")["readers"], nullptr);
}

TEST_F(ZorbeHeader, NumbersThatContradictTheFileAreReported) {
  makeThree();
  store(offsetof(Table::SlotsHeader, capacity), uint64_t{1} << 31);
  EXPECT_THAT(problem(), HasSubstr("2147483648 slots"));
  store(offsetof(Table::SlotsHeader, keyBytes), ~uint64_t{0});
  EXPECT_THAT(problem(), HasSubstr("keys of 18446744073709551615 bytes"));
  store(offsetof(Table::Prologue, version), 77);
  EXPECT_THAT(problem(), HasSubstr("version 77"));
  EXPECT_EQ(zorbe({"list"}).status, 0);
  EXPECT_THAT(zorbe({"show", "t"}).out, HasSubstr("version 77"));
}

// Nothing of a header that holds only this word may be used as a size, a place or a time.
TEST_F(ZorbeHeader, AnyWordInAnyPlaceEndsNoCommand) {
  makeThree();
  const std::string saved = inRoot("saved");
  fs::copy_file(inRoot("t/slots"), saved);
  const Descriptor lock = lockAndListen("t");  // so that the readers in the header count
  constexpr size_t kStatus = offsetof(Table::SlotsHeader, statusSelector);
  for (size_t offset = 8; offset < kStatus + 256; offset += 8) {
    for (const uint64_t word : {~uint64_t{0}, uint64_t{1} << 63}) {
      fs::copy_file(saved, inRoot("t/slots"), fs::copy_options::overwrite_existing);
      store(offset, word);
      const Outcome run = zorbe({"metrics"});
      ASSERT_EQ(run.status, 0) << "at " << offset << ": " << run.err;
    }
  }
}

TEST_F(ZorbeHeader, AFileThatIsCutShortAnywhereEndsNoCommand) {
  makeThree();
  const auto whole = fs::file_size(inRoot("t/slots"));
  for (const uintmax_t length :
       {uintmax_t{0}, uintmax_t{7}, uintmax_t{64}, uintmax_t{9000}, uintmax_t{40960}, whole - 1}) {
    fs::resize_file(inRoot("t/slots"), length);
    EXPECT_EQ(zorbe({"show", "--json", "t"}).status, 0) << length;
  }
}

TEST_F(ZorbeHeader, AFifoInTheFilesPlaceDoesNotBlock) {
  makeTable("t");
  ASSERT_EQ(mkfifo(inRoot("t/slots").c_str(), 0666), 0);
  EXPECT_THAT(problem(), HasSubstr("not a regular file"));
}

TEST_F(ZorbeHeader, ATableThatTheUserMayNotReadIsReportedAndTheRestShown) {
  makeThree();
  fs::permissions(inRoot("t/slots"), fs::perms::none);
  const Outcome run = zorbeAsOrdinaryUser({"show", "--json", "t"});
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.json()["header"].value("problem", ""), HasSubstr("Permission denied"));
}

TEST_F(ZorbeHeader, OfEachTableItIsOpenedOnce) {
  makeThree();
  constexpr int kCopies = 20;
  for (int i = 0; i < kCopies; ++i) fs::copy(inRoot("t"), inRoot("copy" + std::to_string(i)));
  for (const char* command : {"list", "metrics"}) {
    const std::string trace = inRoot(command);
    const Outcome run =
        runProgram({"/usr/bin/env", "ASAN_OPTIONS=detect_leaks=0", "strace", "-f", "-e",
                    "trace=openat,pread64", "-o", trace, ZORBE_COMMAND, command});
    if (run.err.find("PTRACE") != std::string::npos) GTEST_SKIP() << run.err;
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string calls = contentOf(trace);
    EXPECT_EQ(count(calls, "/slots\""), kCopies + 1) << command;
    EXPECT_EQ(count(calls, "boot_id"), 1) << command;
    // The header, its selector, and the slots in one block.
    EXPECT_LE(count(calls, "pread64("), 3 * (kCopies + 1) + 20) << command;
  }
}

TEST_F(ZorbeHeader, MetricsHaveWhatTheHeaderSays) {
  Table::Options options;
  options.maxRecords = 20;
  Writer writer("t", options);
  fill(writer, 3);
  const std::string text = zorbe({"metrics"}).out;
  EXPECT_THAT(text, HasSubstr("# TYPE zorbe_changes_total counter\n"
                              "zorbe_changes_total{table=\"t\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_takeovers_total{table=\"t\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_kicks_total{table=\"t\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_records{table=\"t\"} 3\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_capacity_records{table=\"t\"} 20\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_readers_behind{table=\"t\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_slowest_reader_lag_records{table=\"t\"} 0\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_slowest_reader_lag_seconds{table=\"t\"} 0.000\n"));
  EXPECT_THAT(text, HasSubstr("\nzorbe_build_info{version=\""));
}

TEST_F(ZorbeHeader, MetricsCountKicksAndTakeovers) {
  makeThree();
  { const Writer next("t"); }
  const Descriptor lock = lockAndListen("t");  // so that the readers in the header count
  EXPECT_THAT(zorbe({"metrics"}).out, HasSubstr("# TYPE zorbe_takeovers_total counter\n"
                                                "zorbe_takeovers_total{table=\"t\"} 1\n"));
  store(offsetof(Table::SlotsHeader, status) + 3 * sizeof(Table::Word), 17);
  store(offsetof(Table::SlotsHeader, status[1]) + 3 * sizeof(Table::Word), 17);
  EXPECT_THAT(zorbe({"metrics"}).out, HasSubstr("# TYPE zorbe_kicks_total counter\n"
                                                "zorbe_kicks_total{table=\"t\"} 17\n"));
}

TEST_F(ZorbeHeader, MetricsThatATableDoesNotHaveAreLeftOut) {
  makeTable("other");
  makeThree();
  const std::string text = zorbe({"metrics"}).out;
  EXPECT_THAT(text, HasSubstr("\nzorbe_changes_total{table=\"t\"} 3\n"));
  EXPECT_THAT(text, Not(HasSubstr("zorbe_changes_total{table=\"other\"}")));
  EXPECT_THAT(text, Not(HasSubstr("zorbe_capacity_records{")));
  EXPECT_THAT(text, Not(HasSubstr("zorbe_readers_behind{")));
  EXPECT_THAT(text, Not(HasSubstr("zorbe_kicks_total{")));
  EXPECT_THAT(text, Not(HasSubstr("zorbe_writer_start_timestamp_seconds{")));
}

TEST_F(ZorbeHeader, MetricsSayWhenTheWriterWasStartedAndLastPublished) {
  const auto number = [](const std::string& text, const std::string& name) {
    const size_t at = text.find("\n" + name + "{table=\"t\"} ");
    if (at == std::string::npos) return 0.0;
    return std::stod(text.substr(text.find("} ", at) + 2));
  };
  Writer writer("t");
  fill(writer, 3);
  const std::string text = zorbe({"metrics"}).out;
  const double start = number(text, "zorbe_writer_start_timestamp_seconds");
  const double publish = number(text, "zorbe_last_publish_timestamp_seconds");
  EXPECT_GT(start, 1e9);
  EXPECT_GT(publish, start - 1.5) << "the kernel's time of the boot has whole seconds";
  const auto began =
      static_cast<double>(testing::UnitTest::GetInstance()->start_timestamp()) / 1000;
  EXPECT_NEAR(start, began, 600) << "this process is the writer: " << text;
}

}  // namespace
}  // namespace Zorbe::Test
