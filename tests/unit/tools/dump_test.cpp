// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <sys/stat.h>
#include <zorbe/table/in_loop.h>

#include <cstddef>
#include <cstring>
#include <filesystem>

#include "memory/layout.h"
#include "support/file_content.h"
#include "support/random.h"
#include "unit/tools/records_fixture.h"

namespace Zorbe::Test {

struct DumpedQuote {
  double bid;
  uint16_t sizes[2];
  Zorbe::Table::Text<5> note;
};
ZORBE_FIELDS(DumpedQuote, bid, sizes, note);

struct DumpedKey {
  int32_t region;
  int32_t number;
};
ZORBE_FIELDS(DumpedKey, region, number);

namespace {

using testing::HasSubstr;

class ZorbeDump : public Records {
 protected:
  // A table of numbered keys.
  void feedNumbers() {
    const Outcome run =
        zorbeWith("10,a\n-5,b\n9,c\n", {"feed", "n", "--key", "id:i4", "--field", "text:S5"});
    EXPECT_EQ(run.status, 0) << run.err;
  }

  static void writeKeys() {
    Brask::Linux::EventLoop loop;
    Zorbe::Table::LoopWriter<DumpedKey, DumpedQuote> writer("pairs");
    writer.put({2, 1}, {0.5, {1, 2}, "x"});
    writer.put({1, 7}, {1e300, {3, 4}, "\xff"});
  }
};

TEST_F(ZorbeDump, CsvHasAHeaderAndIsSortedByTheKeysValue) {
  feedNumbers();
  EXPECT_EQ(zorbe({"dump", "n", "--csv"}).out, "id,text\n-5,b\n9,c\n10,a\n");
}

TEST_F(ZorbeDump, UnsortedRowsComeInTheOrderInWhichTheyWereWritten) {
  feedNumbers();
  EXPECT_EQ(zorbe({"dump", "n", "--csv", "--unsorted"}).out, "id,text\n10,a\n-5,b\n9,c\n");
  EXPECT_EQ(zorbe({"dump", "n", "--unsorted"}).out, "id  text\n10  a\n-5  b\n9  c\n");
}

TEST_F(ZorbeDump, JsonIsAnObjectPerLine) {
  feedNumbers();
  EXPECT_EQ(zorbe({"dump", "n", "--json"}).out,
            "{\"id\":-5,\"text\":\"b\"}\n{\"id\":9,\"text\":\"c\"}\n{\"id\":10,\"text\":\"a\"}\n");
}

TEST_F(ZorbeDump, TextIsAligned) {
  feedNumbers();
  EXPECT_EQ(zorbe({"dump", "n"}).out, "id  text\n-5  b\n 9  c\n10  a\n");
}

TEST_F(ZorbeDump, ShowsWhatAProgramHasWritten) {
  writeKeys();
  EXPECT_EQ(zorbe({"dump", "pairs", "--csv"}).out,
            "region,number,bid,sizes[0],sizes[1],note\n"
            "1,7,1e+300,3,4,\xff\n2,1,0.5,1,2,x\n");
  EXPECT_EQ(zorbe({"dump", "pairs", "--json"}).lines()[0],
            R"({"region":1,"number":7,"bid":1e+300,"sizes":[3,4],"note":"\udcff"})");
  EXPECT_THAT(zorbe({"dump", "pairs"}).out, HasSubstr("\\xff"));
}

TEST_F(ZorbeDump, GetPrintsTheRowOfAKey) {
  writeKeys();
  EXPECT_EQ(zorbe({"get", "pairs", "2", "1"}).out, "2,1,0.5,1,2,x\n");
  EXPECT_EQ(zorbe({"get", "pairs", "2", "1", "--json"}).out,
            "{\"region\":2,\"number\":1,\"bid\":0.5,\"sizes\":[1,2],\"note\":\"x\"}\n");
}

TEST_F(ZorbeDump, GetTakesANegativeNumberForAKey) {
  feedNumbers();
  EXPECT_EQ(zorbe({"get", "n", "-5"}).out, "-5,b\n");
  EXPECT_EQ(zorbe({"get", "n", "--", "-5"}).out, "-5,b\n");
}

TEST_F(ZorbeDump, GetExitsWithOneWithoutSuchAKey) {
  feedNumbers();
  for (const char* key : {"11", "x", "99999999999"}) {
    const Outcome run = zorbe({"get", "n", key});
    EXPECT_EQ(run.status, 1) << key;
    EXPECT_EQ(run.out, "") << key;
    EXPECT_THAT(run.err, HasSubstr("zorbe: no such key in table n: ")) << key;
  }
}

TEST_F(ZorbeDump, GetWantsEveryElementOfTheKey) {
  writeKeys();
  const Outcome run = zorbe({"get", "pairs", "2"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "zorbe: a key has 2 elements, and 1 are given\n");
}

TEST_F(ZorbeDump, ATableThatIsNotThereIsNotMade) {
  for (const Words& command : {Words{"dump", "none"}, Words{"get", "none", "1"}}) {
    const Outcome run = zorbe(command);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zorbe: no table none at " + inRoot("none") + "\n");
  }
  EXPECT_FALSE(fs::exists(inRoot("none")));
}

TEST_F(ZorbeDump, ATableOfAnotherKindIsRefused) {
  const std::string path = makeTable("other");
  for (const Words& command :
       {Words{"dump", "other"}, Words{"get", "other", "1"}, Words{"tail", "other"},
        Words{"tail", "other", "--wait"}, feedOf("other")}) {
    Outcome run = zorbe(command);
    EXPECT_EQ(run.status, 2) << command[0];
    EXPECT_EQ(run.err,
              "zorbe: table 'other' is not of the ready-made kind: it has no file 'slots'\n");
    writeFile(path + "/slots", "another format");
    run = zorbe(command);
    EXPECT_EQ(run.status, 2) << command[0];
    EXPECT_EQ(run.err, "zorbe: table 'other' is not of the ready-made kind: " + path +
                           "/slots begins with 'another ' instead of 'ZTSLOTS1'\n");
    fs::remove(path + "/slots");
    writeFile(path + "/buckets", "another format");
    EXPECT_EQ(zorbe(command).status, 2) << command[0];
    EXPECT_EQ(contentOf(path + "/buckets"), "another format");
    fs::remove(path + "/buckets");
  }
}

TEST_F(ZorbeDump, AFifoInPlaceOfAFileDoesNotBlock) {
  fs::create_directory(inRoot("t"));
  ASSERT_EQ(::mkfifo(inRoot("t/slots").c_str(), 0666), 0);
  const Outcome run = zorbe({"dump", "t"});
  EXPECT_EQ(run.status, 2);
  EXPECT_THAT(run.err, HasSubstr("is not a regular file"));
}

TEST_F(ZorbeDump, AnUnfinishedTableHasNoRecords) {
  fs::create_directory(inRoot("t"));
  putContent(inRoot("t/slots"), "");
  const Outcome run = zorbe({"dump", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("has no records: it is not complete"));
}

TEST_F(ZorbeDump, ADamagedFileIsAFailure) {
  feed("t", "a,1\n");
  fs::resize_file(inRoot("t/slots"), 4096);
  const Outcome run = zorbe({"dump", "t"});
  EXPECT_EQ(run.status, 2);
  EXPECT_NE(run.err, "");
}

TEST_F(ZorbeDump, DamagedBytesEndItInAnOrderlyWay) {
  feed("t", "a,1\nb,2\n");
  const std::string whole = contentOf(inRoot("t/slots"));
  const size_t description = offsetof(Zorbe::Table::SlotsHeader, description);
  Random random(8);
  for (int round = 0; round < 60; ++round) {
    std::string damaged = whole;
    for (unsigned changes = 1 + random.below(8); changes > 0; --changes) {
      const size_t at =
          random.percent(50) ? description + random.below(60) : random.below(whole.size());
      damaged[at] = "0123456789uiSVf [\n\xff"[random.below(19)];
    }
    putContent(inRoot("t/slots"), damaged);
    const Outcome run = zorbe({"dump", "t", "--json"});
    EXPECT_GE(run.status, 0) << run.err;
    EXPECT_LE(run.status, 2) << run.err;
    EXPECT_EQ(run.status == 0, run.err.empty()) << run.err;
  }
}

TEST_F(ZorbeDump, RecordsWithoutADescriptionAreHexadecimal) {
  {
    Brask::Linux::EventLoop loop;
    Zorbe::Table::WriterCore writer("raw", {}, {3, 4, ""});
    const uint64_t key = 0;
    writer.put(&key, "\x01\xfe\0\x10");
  }
  EXPECT_EQ(zorbe({"dump", "raw", "--csv"}).out, "key,value\n000000,01fe0010\n");
  EXPECT_EQ(zorbe({"get", "raw", "000000", "--json"}).out,
            "{\"key\":\"000000\",\"value\":\"01fe0010\"}\n");
}

TEST_F(ZorbeDump, ADescriptionReachesNoTerminal) {
  {
    Brask::Linux::EventLoop loop;
    Zorbe::Table::WriterCore writer("t", {}, {1, 1, "key k u1 0\nvalue v\033[2J\xff u1 0\n"});
    uint64_t key = 0;
    std::memcpy(&key, "\x01", 1);
    writer.put(&key, "\x02");
  }
  EXPECT_EQ(zorbe({"dump", "t"}).out, "k  v\\x1b[2J\\xff\n1             2\n");
  EXPECT_EQ(zorbe({"dump", "t", "--json"}).out, "{\"k\":1,\"v\\u001b[2J\\udcff\":2}\n");
}

TEST_F(ZorbeDump, AFullDiskIsAFailure) {
  feedNumbers();
  const Outcome run =
      runProgram({"/bin/sh", "-c", std::string("exec ") + ZORBE_COMMAND + " dump n >/dev/full"});
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, "zorbe: cannot write to standard output\n");
}

TEST_F(ZorbeDump, TheWriterSeesNoReader) {
  LiveInput input(inRoot("pipe"));
  ChildProcess writer = startWith(input.path(), feedOf("t"));
  input.write("a,1\n");
  awaitRows("t", {"a,1"});
  EXPECT_EQ(listed("t")["connections"], 0);
  input.end();
  EXPECT_EQ(writer.finish(), 0);
}

}  // namespace
}  // namespace Zorbe::Test
