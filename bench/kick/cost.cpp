// SPDX-License-Identifier: MIT
//
// What a round costs besides its duration: processor time of both sides, allocations, and the
// writer's memory per connection.
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>

#include "harness/allocations.h"
#include "harness/program.h"
#include "kick/one_process.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

double microseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
}

// In microseconds.
struct ProcessorTime {
  double user = 0;
  double system = 0;

  static ProcessorTime of(int who) {
    rusage usage{};
    check(::getrusage(who, &usage), "getrusage()");
    return {microseconds(usage.ru_utime), microseconds(usage.ru_stime)};
  }
};

// In a process of its own, so that what its reader used is that of its only child.
ProcessorTime timeOf(std::unique_ptr<Scheme> (*make)(), int rounds) {
  auto* const used = shared<ProcessorTime>();
  runApart([&] {
    ProcessorTime before;
    ProcessorTime after;
    {
      Schemes schemes;
      schemes.push_back(make());
      Field field(std::move(schemes), 1, -1);
      before = ProcessorTime::of(RUSAGE_SELF);
      for (int each = 0; each < rounds; ++each) field.schemes().front()->round();
      after = ProcessorTime::of(RUSAGE_SELF);
    }
    const ProcessorTime reader = ProcessorTime::of(RUSAGE_CHILDREN);
    used->user = (after.user - before.user + reader.user) / rounds;
    used->system = (after.system - before.system + reader.system) / rounds;
  });
  return *used;
}

void measureProcessorTime(Results& results) {
  const int rounds = results.size(200000, 30000);
  std::vector<Subject> user;
  std::vector<double> system[2];
  const auto block = [&](int which, std::unique_ptr<Scheme> (*make)()) {
    const ProcessorTime time = timeOf(make, rounds);
    system[which].push_back(time.system);
    return std::vector<double>{time.user};
  };
  user.push_back({"floor", [&] { return block(0, makeFloor); }});
  user.push_back({"libZorbe", [&] { return block(1, makeZorbe); }});
  results.addMedians("processor-user", "one CPU", "us a round", compare(user, results.size(10, 5)),
                     "<= 1.5");
  results.add(
      {"processor-system", "floor", "one CPU", "us a round", spreadOf(system[0]), "", {}, ""});
  std::vector<double> ratios;
  for (size_t each = 0; each < system[0].size(); ++each) {
    ratios.push_back(system[1][each] / system[0][each]);
  }
  results.add({"processor-system", "libZorbe", "one CPU", "us a round", spreadOf(system[1]),
               "floor", spreadOf(ratios), ""});
}

void measureAllocations(Results& results) {
  constexpr int kRounds = 1000;
  for (const size_t readers : {1, 100}) {
    OneProcess both(readers);
    for (int each = 0; each < 10; ++each) both.round();
    const long before = allocations();
    for (int each = 0; each < kRounds; ++each) both.round();
    const double perRound = static_cast<double>(allocations() - before) / kRounds;
    results.add({"allocations",
                 "libZorbe, both sides",
                 std::to_string(readers),
                 "a round",
                 {perRound, perRound, perRound},
                 "",
                 {},
                 "= " + std::to_string(readers)});
  }
}

// Connects `count` times and reports, as that many readers would.
void besiege(const std::string& root, uint64_t count) {
  SilentHandler handler;
  sockaddr_un address{};
  const socklen_t length = Zorbe::Util::createSockaddr(handler, &address, root);
  for (uint64_t each = 0; each < count; ++each) {
    const int fd = check(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0), "socket()");
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    check(::connect(fd, generic, length), "connect()");
    const uint64_t nothing = 0;
    check(static_cast<int>(::send(fd, &nothing, sizeof nothing, 0)), "send()");
  }
  ::pause();
}

// What each of `count` connections adds to the writer's resident memory.
double memoryOf(size_t count) {
  auto* const bytes = shared<double>();
  runApart([&] {
    ScratchDirectory directory;
    check(::setenv("SHMEM_ROOT", directory.path().c_str(), 1), "setenv()");
    SilentHandler handler;
    Published published{0};
    const Zorbe::RootPath root(handler, "bench", true);
    Children readers;
    readers.start(-1, [&] { besiege(root.path, count); });
    Brask::Linux::EventLoop loop;
    Writer writer(handler, root, published);
    writer.open();
    readers.release();
    const double before = ownMemory();
    while (writer.sleeping() < count) loop.turn(-1);
    for (int each = 0; each < 3; ++each) writer.publish();
    *bytes = (ownMemory() - before) / static_cast<double>(count);
  });
  return *bytes;
}

void measureMemory(Results& results, long limit) {
  for (const size_t connections : {1000, 10000}) {
    const std::string load = std::to_string(connections);
    if (limit < static_cast<long>(connections) + 100) {
      results.skip("memory", load + " connections", "the limit of open descriptors is lower");
      continue;
    }
    std::vector<double> samples;
    for (int each = 0; each < results.size(5, 3); ++each) samples.push_back(memoryOf(connections));
    results.add({"memory",
                 "libZorbe, writer",
                 load,
                 "bytes a connection",
                 spreadOf(samples),
                 "",
                 {},
                 "<= 512"});
  }
}

void run(Results& results) {
  const long limit = raiseDescriptorLimit();
  pinTo(0);
  measureProcessorTime(results);
  measureMemory(results, limit);
  measureAllocations(results);
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
