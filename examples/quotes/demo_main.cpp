// SPDX-License-Identifier: MIT
//
// quotes-demo: the life of a table, played by real processes.
//
//   Act 1  one writer, four readers, and one writer too many
//   Act 2  the writer is killed and replaced; then the directory is removed
//
// Ends with 0 only when all of it happened in time, and every reader had in the end of each
// act what the writer had.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "child.h"
#include "clock.h"

namespace {

using Quotes::Child;
using Quotes::field;

constexpr unsigned kReaders = 4;
constexpr const char* kRate = "20000";  // rows a second: readers fall asleep in between
constexpr double kPlayingSeconds = 60;  // all rows, at that rate, on a busy machine
constexpr double kDeadline = 10;        // anything else

/// A directory for this run's tables, gone afterwards.
class TemporaryRoot {
 public:
  TemporaryRoot() {
    std::string pattern = std::filesystem::temp_directory_path() / "quotes-demo-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp() failed");
    path_ = pattern;
    if (::setenv("SHMEM_ROOT", path_.c_str(), 1) != 0) throw std::runtime_error("setenv() failed");
  }
  TemporaryRoot(const TemporaryRoot&) = delete;
  TemporaryRoot& operator=(const TemporaryRoot&) = delete;
  ~TemporaryRoot() {
    std::error_code ignored;  // nothing that the user could do about it
    std::filesystem::remove_all(path_, ignored);
  }

  std::string table() const { return path_ + "/demo"; }

 private:
  std::string path_;
};

class Demo {
 public:
  explicit Demo(const std::string& rows) : rows_(rows) {
    for (unsigned i = 0; i < kReaders; ++i) {
      readers_.emplace_back(
          std::vector<std::string>{Quotes::sibling("quotes-reader"), "demo", "--events"});
    }
  }

  bool run() {
    std::cout << "Act 1: one writer, four readers\n\n";
    Child writer = startWriter();
    const std::string fenix = field(writer.awaitLine("ready ", kDeadline), "fenix");
    tell("writer " + std::to_string(writer.pid()) + " is ready, incarnation " + fenix);
    bool good = secondWriterIsRefused(writer);
    good = everythingIsRead(writer) && good;

    std::cout << "\nAct 2: the writer dies, then the directory\n\n";
    killWriter(writer);
    writer = startWriter();
    const std::string next = field(writer.awaitLine("ready ", kDeadline), "fenix");
    tell("the next writer has the lock, incarnation " + next);
    awaitIncarnation(fenix, true);
    removeDirectory();
    awaitIncarnation(next, false);
    return everythingIsRead(writer) && end(writer) && good;
  }

 private:
  Child startWriter() const {
    return Child({Quotes::sibling("quotes-writer"), "demo", "--rate", kRate, "--await",
                  std::to_string(kReaders)},
                 rows_);
  }

  void tell(const std::string& event) const {
    const double seconds = static_cast<double>(Quotes::monotonicNanoseconds() - begin_) / 1e9;
    std::cout << std::fixed << std::setprecision(4) << std::setw(8) << seconds << " s  " << event
              << std::endl;
  }

  void told(unsigned index, const std::string& event) const {
    tell("reader " + std::to_string(index + 1) + " " + event);
  }

  bool secondWriterIsRefused(const Child& writer) const {
    Child second = startWriter();
    const int code = second.awaitEnd(kDeadline);
    const std::string report = second.errors();
    tell("a second writer ended with code " + std::to_string(code) + ":\n" + report);
    return code == 3 && report.find(":" + std::to_string(writer.pid()) + " ") != report.npos;
  }

  /// True when all readers have read all rows in time. When not, their states tell which.
  bool everythingIsRead(Child& writer) {
    bool good = true;
    try {
      tell("writer: " + writer.awaitLine("fed ", kPlayingSeconds));
      tell("writer: " + writer.awaitLine("read ", kDeadline));
    } catch (const std::runtime_error& late) {
      tell(late.what());
      good = false;
    }
    const std::string written = stateOf(writer, "writer ");
    tell(written);
    for (unsigned i = 0; i < kReaders; ++i) {
      good = readerAgrees(i, stateOf(readers_[i], "reader "), written) && good;
    }
    return good;
  }

  static std::string stateOf(Child& process, const std::string& prefix) {
    process.signal(SIGUSR1);
    return process.awaitLine(prefix, kDeadline);
  }

  bool readerAgrees(unsigned index, const std::string& read, const std::string& written) const {
    const auto same = [&](const char* key) { return field(read, key) == field(written, key); };
    const bool awake = same("fenix") && same("sequence");
    const bool equal = same("digest");
    tell("reader " + std::to_string(index + 1) + ": sequence " + field(read, "sequence") +
         ", applied " + field(read, "applied") + ", kicks " + field(read, "kicks") + ", passes " +
         field(read, "passes") + ", wake-up p50 " + field(read, "p50us") + " us p99 " +
         field(read, "p99us") + " us, copy " + field(read, "digest") + " " +
         (!awake  ? "LEFT ASLEEP"
          : equal ? "equals the writer's"
                  : "DIFFERS"));
    return awake && equal;
  }

  void killWriter(Child& writer) {
    const std::string pid = std::to_string(writer.pid());
    const uint64_t killedAt = Quotes::monotonicNanoseconds();
    writer.signal(SIGKILL);
    static_cast<void>(writer.awaitEnd(kDeadline));
    tell("writer " + pid + " was killed");
    for (unsigned i = 0; i < kReaders; ++i) {
      const std::string event = readers_[i].awaitLine("event departed", kDeadline);
      const uint64_t after = std::stoull(field(event, "at")) - killedAt;
      told(i, "has heard of it " + std::to_string(after / 1000) + " us after the kill");
    }
  }

  void removeDirectory() const {
    const std::string path = root_.table();
    std::error_code error = std::make_error_code(std::errc::directory_not_empty);
    for (int i = 0; error == std::errc::directory_not_empty && i < 100; ++i) {
      std::filesystem::remove_all(path, error);  // while others are making it again
    }
    if (error) throw std::runtime_error("cannot remove " + path + ": " + error.message());
    tell("the directory was removed, while the writer publishes");
  }

  static std::string departure(const std::string& from, const std::string& to) {
    return "has left incarnation " + from + " for " + to;
  }

  void awaitIncarnation(const std::string& old, bool validated) {
    for (unsigned i = 0; i < kReaders; ++i) {
      if (validated) readers_[i].awaitLine("event refused fenix=" + old, kDeadline);
      std::string mapped = old;
      while (mapped == old) {
        mapped = field(readers_[i].awaitLine("event mapped", kDeadline), "fenix");
      }
      told(i, departure(old, mapped));
    }
  }

  bool end(Child& writer) {
    bool good = true;
    writer.signal(SIGTERM);
    good = writer.awaitEnd(kDeadline) == 0;
    for (Child& reader : readers_) {
      reader.signal(SIGTERM);
      good = reader.awaitEnd(kDeadline) == 0 && good;
    }
    return good;
  }

  std::string rows_;
  uint64_t begin_ = Quotes::monotonicNanoseconds();
  TemporaryRoot root_;
  std::vector<Child> readers_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: quotes-demo TICKS.CSV\n";
    return 2;
  }
  try {
    const bool good = Demo(argv[1]).run();
    std::cout << (good ? "\nAll readers agree with the writer." : "\nFAILED") << std::endl;
    return good ? 0 : 1;
  } catch (const std::exception& failure) {
    std::cerr << "quotes-demo: " << failure.what() << std::endl;
    return 1;
  }
}
