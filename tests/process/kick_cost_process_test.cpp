// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "process/process_fixture.h"
#include "support/sanitized.h"
#include "support/tracer.h"

namespace Zorbe::Test {
namespace {

constexpr uint64_t kWarmUp = 10;
constexpr uint64_t kRounds = 1000;
using Calls = std::vector<std::string>;

// One round: publish, wake the reader, take its report.
void runRounds(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableWriter writer(context.handler, context.root, table);
  writer.open();
  parent.send("listening");
  EXPECT_TRUE(turnUntil(context.loop, [&] { return writer.sleepingReaders.size() == 1; }));
  parent.await("begin");
  while (context.loop.turn(0)) continue;
  const auto turn = [&](uint64_t count) {
    for (; count > 0; --count) {
      writer.publish();
      context.loop.turn(-1);
    }
  };
  turn(kWarmUp);
  SystemCallTrace::mark();
  turn(kRounds);
  SystemCallTrace::mark();
  EXPECT_EQ(writer.kickCount, 1 + kWarmUp + kRounds);
  EXPECT_TRUE(writer.allCaughtUp());
}

void runRoundsReader(Channel& parent, SharedTable& table) {
  ProcessContext context;
  TableReader reader(context.handler, context.root, table);
  reader.doConnect();
  EXPECT_TRUE(context.loop.turn(-1));  // the kick that acknowledges the connection
  parent.send("connected");
  parent.await("begin");
  for (uint64_t i = 0; i < kWarmUp; ++i) context.loop.turn(-1);
  SystemCallTrace::mark();
  for (uint64_t i = 0; i < kRounds; ++i) context.loop.turn(-1);
  SystemCallTrace::mark();
  EXPECT_EQ(reader.at(), kWarmUp + kRounds);
}

bool isOfTheSanitizers(const std::string& call) {
  return kIsSanitized && (call == "mmap" || call == "munmap" || call == "madvise");
}

Calls measured(const SystemCallTrace& trace, pid_t child) {
  EXPECT_TRUE(trace.complete(child));
  Calls calls = trace.calls(child);
  calls.erase(std::remove_if(calls.begin(), calls.end(), isOfTheSanitizers), calls.end());
  return calls;
}

void expectEachRound(const Calls& calls, const Calls& round) {
  EXPECT_EQ(calls.size(), kRounds * round.size());
  for (size_t i = 0; i + round.size() <= calls.size(); i += round.size()) {
    const auto first = calls.begin() + static_cast<Calls::difference_type>(i);
    const Calls made(first, first + static_cast<Calls::difference_type>(round.size()));
    ASSERT_EQ(made, round) << "round " << i / round.size();
  }
}

class KickCost : public ProcessTest {};

TEST_F(KickCost, AKickRoundMakesFourSystemCallsOnEachSide) {
  const Child writer = start("writer", [this](Channel& parent) { runRounds(parent, table); });
  writer->await("listening");
  const Child reader = start("reader", [this](Channel& parent) { runRoundsReader(parent, table); });
  reader->await("connected");
  SystemCallTrace trace;
  if (!trace.watch(writer->pid())) GTEST_SKIP() << "may not trace: " << std::strerror(errno);
  ASSERT_TRUE(trace.watch(reader->pid()));
  reader->send("begin");
  writer->send("begin");
  trace.run();
  expectEachRound(measured(trace, writer->pid()), {"send", "epoll_wait", "recv", "recv"});
  expectEachRound(measured(trace, reader->pid()), {"epoll_wait", "recv", "recv", "send"});
  EXPECT_EQ(writer->finish(), 0);
  EXPECT_EQ(reader->finish(), 0);
}

}  // namespace
}  // namespace Zorbe::Test
