// SPDX-License-Identifier: MIT
//
// The programs of examples/loops: the bundled loop in that of another library, here with readers
// and writers in other processes.
#include <zorbe/table.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <sstream>

#include "process/example_programs.h"

namespace Zorbe::Test {
namespace {

using namespace std::chrono_literals;

struct Price {
  double bid, ask;
};
ZORBE_FIELDS(Price, bid, ask);
using Symbol = Zorbe::Table::Text<8>;
using Writer = Zorbe::Table::Writer<Symbol, Price>;
using Reader = Zorbe::Table::Reader<Symbol, Price>;

class LoopsPrograms : public ExamplePrograms, public testing::WithParamInterface<std::string> {
 protected:
  static ChildProcess startLoop(const std::string& role, const std::string& count) {
    return start({GetParam(), role, "prices", count});
  }

  static void expectLines(ChildProcess& program, const std::vector<std::string>& lines) {
    for (const std::string& line : lines) EXPECT_EQ(program.awaitLine(line), line);
  }

  /// Lets the reader follow until `reached` returns true; false when it did not in time.
  template <class Condition>
  static bool followUntil(Reader& reader, Condition reached) {
    const auto end = std::chrono::steady_clock::now() + kTimeout;
    while (!reached()) {
      if (std::chrono::steady_clock::now() > end) return false;
      reader.wait(50ms);
    }
    return true;
  }
};

TEST_P(LoopsPrograms, AReaderFollowsOneWriterAfterAnother) {
  ChildProcess program = startLoop("read", "9");
  expectLines(program, {"0 records, waiting"});
  std::optional<Writer> writer(std::in_place, "prices");
  expectLines(program, {"0 records, connected"});
  writer->put("ABC", {1, 2});
  writer->put("DEF", {3, 4});
  writer->publish();
  expectLines(program, {"put ABC 1", "put DEF 3", "2 records, connected"});
  writer->erase("ABC");
  writer->publish();
  expectLines(program, {"erased ABC", "1 records, connected"});
  writer.reset();
  expectLines(program, {"1 records, orphaned"});
  writer.emplace("prices");
  expectLines(program, {"1 records, connected"});
  // More than one turn delivers, from one kick.
  for (const char* symbol : {"GHI", "JKL", "MNO", "PQR", "STU"}) writer->put(symbol, {5, 6});
  writer->erase("DEF");
  writer->publish();
  expectLines(program,
              {"put GHI 5", "put JKL 5", "put MNO 5", "put PQR 5", "put STU 5", "erased DEF"});
  EXPECT_EQ(program.finish(), 0);
  EXPECT_EQ(program.log(), "");
}

TEST_P(LoopsPrograms, AWriterServesReaders) {
  ChildProcess other = start({"table-reader"});
  ChildProcess program = startLoop("write", "1000000");
  EXPECT_EQ(other.awaitLine("0 "), "0 0 0.5");
  Reader reader("prices");
  // A reader that looks by itself sees changes, too: what counts is that the writer wakes it.
  EXPECT_TRUE(followUntil(reader, [&] {
    while (reader.next()) continue;
    const auto status = reader.status();
    return status && status->connections == 2 && status->kicks >= 20;
  }));
  EXPECT_FALSE(program.endsWithin(0ms));
  const std::string number = std::to_string(reader.size());
  EXPECT_THAT(other.awaitLine(number), testing::StartsWith(number + ' '));
}

TEST_P(LoopsPrograms, AWriterEndsAfterItsRecordsAndTheNextContinues) {
  Reader reader("prices");
  ChildProcess first = startLoop("write", "3");
  EXPECT_EQ(first.finish(), 0) << first.log();
  EXPECT_TRUE(followUntil(reader, [&] { return reader.size() == 3; }));
  ChildProcess next = startLoop("write", "2");
  EXPECT_EQ(next.finish(), 0) << next.log();
  EXPECT_TRUE(followUntil(reader, [&] { return reader.size() == 5; }));
}

TEST_P(LoopsPrograms, AFailureInACallbackEndsTheProgramWithItsReason) {
  ChildProcess program = startLoop("read", "1");
  expectLines(program, {"0 records, waiting"});
  Zorbe::Table::Writer<uint32_t, double> writer("prices");
  EXPECT_EQ(program.finish(), 1);
  EXPECT_THAT(program.log(), testing::StartsWith(GetParam() + ": table 'prices'"));
}

std::vector<std::string> builtLoops() {
  std::istringstream names(ZORBE_LOOP_EXAMPLES);
  return {std::istream_iterator<std::string>(names), {}};
}

std::string nameOf(const testing::TestParamInfo<std::string>& loop) {
  std::string name = loop.param;
  name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
  return name;
}

INSTANTIATE_TEST_SUITE_P(Built, LoopsPrograms, testing::ValuesIn(builtLoops()), nameOf);

}  // namespace
}  // namespace Zorbe::Test
