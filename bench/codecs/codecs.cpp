// SPDX-License-Identifier: MIT
//
// The codecs, in bytes per second and bytes per processor cycle. Where no hardware counter
// can be read, a cycle is a third of what a multiplication takes that waits for the one
// before it: the same on every x86-64 processor of the last fifteen years.
#include <benchmark/benchmark.h>
#include <zorbe/util.h>

#include <map>
#include <random>

#include "codecs/forms.h"
#include "harness/processes.h"
#include "harness/program.h"

namespace Bench {

namespace {

std::vector<uint16_t> randomWords(size_t count) {
  std::mt19937 random(42);
  std::vector<uint16_t> words(count);
  for (uint16_t& word : words) word = static_cast<uint16_t>(random());
  return words;
}

std::string randomText(size_t size) {
  const std::vector<uint16_t> words = randomWords(size);
  return {words.begin(), words.end()};
}

void multiplyInAChain(benchmark::State& state) {
  constexpr int kLinks = 3000;
  uint64_t factor = 3;
  benchmark::DoNotOptimize(factor);
  for (auto _ : state) {
    uint64_t product = 1;
    for (int each = 0; each < kLinks; ++each) product *= factor;
    benchmark::DoNotOptimize(product);
  }
  state.SetBytesProcessed(state.iterations() * kLinks * 3);
}

void hashString(benchmark::State& state) {
  const std::string text = randomText(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Zorbe::Util::hash(text));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void hashBytes(benchmark::State& state) {
  const std::string text = randomText(static_cast<size_t>(state.range(0)));
  const auto length = static_cast<unsigned>(text.size());
  for (auto _ : state) benchmark::DoNotOptimize(Zorbe::Util::hash(text.data(), length));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void checksum(benchmark::State& state, Checksum form) {
  const std::vector<uint16_t> words = randomWords(static_cast<size_t>(state.range(0)) / 2);
  const uint16_t* begin = words.data();
  for (auto _ : state) {
    benchmark::DoNotOptimize(begin);
    benchmark::DoNotOptimize(form(begin, begin + words.size()));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

// Keeps the rate of every repetition, by the benchmark's name.
class Rates : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      const std::string name = run.run_name.function_name + "/" + run.run_name.args;
      samples_[name].push_back(run.counters.at("bytes_per_second").value / 1e9);
    }
  }
  const std::vector<double>& of(const std::string& name) const { return samples_.at(name); }
  bool has(const std::string& name) const { return samples_.count(name) != 0; }

 private:
  std::map<std::string, std::vector<double>> samples_;
};

constexpr const char* kLibrary = "ipChecksumRange";
constexpr const char* kNaive = "naive loop";
constexpr const char* kByHand = "by hand";

void registerAll() {
  benchmark::RegisterBenchmark("chain", multiplyInAChain)->Arg(0);
  for (const int size : {8, 64, 1024}) {
    benchmark::RegisterBenchmark("hash(string)", hashString)->Arg(size);
    benchmark::RegisterBenchmark("hash(bytes)", hashBytes)->Arg(size);
  }
  for (const int size : {64, 4096, 1 << 20}) {
    benchmark::RegisterBenchmark(kNaive, checksum, naiveChecksum)->Arg(size);
    benchmark::RegisterBenchmark(kLibrary, checksum, Zorbe::Util::ipChecksumRange)->Arg(size);
    if (const Checksum form = handVectorisedChecksum()) {
      benchmark::RegisterBenchmark(kByHand, checksum, form)->Arg(size);
    }
  }
}

void verify() {
  const std::vector<uint16_t> words = randomWords(1000);
  for (size_t size = 0; size <= words.size(); ++size) {
    const uint16_t* const begin = words.data();
    const uint16_t expected = naiveChecksum(begin, begin + size);
    const Checksum form = handVectorisedChecksum();
    if (form != nullptr && form(begin, begin + size) != expected) {
      throw std::runtime_error("the form written by hand is wrong");
    }
    if (Zorbe::Util::ipChecksumRange(begin, begin + size) != expected) {
      throw std::runtime_error("ipChecksumRange is wrong");
    }
  }
}

void reportHashes(Results& results, const Rates& rates, double gigahertz) {
  for (const char* which : {"hash(string)", "hash(bytes)"}) {
    for (const char* size : {"8", "64", "1024"}) {
      std::vector<double> cyclesPerByte;
      for (const double rate : rates.of(std::string(which) + "/" + size)) {
        cyclesPerByte.push_back(gigahertz / rate);
      }
      const bool string = which[5] == 's';
      results.add({"codec-hash",
                   which,
                   size,
                   "cycles a byte",
                   spreadOf(cyclesPerByte),
                   "",
                   {},
                   string ? "<= 4" : "<= 5"});
    }
  }
}

void reportChecksums(Results& results, const Rates& rates, double gigahertz) {
  for (const char* size : {"64", "4096", "1048576"}) {
    const Spread base = spreadOf(rates.of(std::string(kNaive) + "/" + size));
    for (const char* which : {kNaive, kLibrary, kByHand}) {
      const std::string name = std::string(which) + "/" + size;
      if (!rates.has(name)) continue;
      std::vector<double> ratios;
      std::vector<double> perCycle;
      for (const double rate : rates.of(name)) {
        ratios.push_back(rate / base.median);
        perCycle.push_back(rate / gigahertz);
      }
      const bool goal = which == kLibrary && std::string(size) == "4096";
      results.add({"codec-checksum", which, size, "GB/s", spreadOf(rates.of(name)), kNaive,
                   spreadOf(ratios), goal ? ">= 40 GB/s" : ""});
      results.add({"codec-cycles", which, size, "bytes a cycle", spreadOf(perCycle), "", {}, ""});
    }
  }
}

void run(Results& results) {
  pinTo(0);
  verify();
  const std::string repetitions = "--benchmark_repetitions=" + std::to_string(results.size(40, 10));
  std::vector<std::string> arguments{
      "codecs", repetitions, "--benchmark_enable_random_interleaving=true",
      results.quick() ? "--benchmark_min_time=0.01" : "--benchmark_min_time=0.05"};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  auto argc = static_cast<int>(argv.size());
  benchmark::Initialize(&argc, argv.data());
  registerAll();
  Rates rates;
  benchmark::RunSpecifiedBenchmarks(&rates);
  // The fastest repetition: nothing disturbed it.
  const double gigahertz = quantile(rates.of("chain/0"), 1.0);
  results.add({"codec-clock",
               "processor",
               "one CPU",
               "GHz",
               {gigahertz, gigahertz, gigahertz},
               "",
               {},
               ""});
  reportHashes(results, rates, gigahertz);
  reportChecksums(results, rates, gigahertz);
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  return Bench::runProgram(argc, argv, Bench::run);
}
