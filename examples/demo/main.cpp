// SPDX-License-Identifier: MIT
//
// quotes-demo: the life of a table, played by real processes.
//
//   Act 1  one writer, four readers, and one writer too many
//   Act 2  the writer is killed and another one continues; then the directory is removed
//   Act 3  a writer is stopped while it writes, and readers read on
//   Act 4  a table grows from 1,000 to 1,000,000 records under its readers
//
// Ends with 0 only when each promise held: see the functions that return bool.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "acts.h"
#include "child.h"
#include "clock.h"
#include "role.h"

namespace {

using namespace Demo;

constexpr const char* kRate = "20000";   // rows a second: readers fall asleep in between
constexpr uint64_t kRowsBefore = 10000;  // the writer is killed
constexpr double kPlayingSeconds = 60;   // all rows, at that rate, on a busy machine
constexpr double kDeadline = 20;         // anything else

/// A directory for the tables of this run, removed afterwards.
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

class Play {
 public:
  explicit Play(const std::string& rows) : rows_(rows) {
    for (unsigned i = 0; i < kReaders; ++i) {
      readers_.emplace_back(std::vector<std::string>{sibling("quotes-reader"), "demo", "--events"});
    }
  }

  bool run() {
    std::cout << "Act 1: one writer, four readers, and one writer too many\n\n";
    Child writer = startWriter();
    const std::string ready = writer.awaitLine("ready ", kDeadline);
    const std::string incarnation = field(ready, "incarnation");
    say("writer " + std::to_string(writer.pid()) + " is ready, incarnation " + incarnation);
    bool good = secondWriterIsRefused(writer);

    std::cout
        << "\nAct 2: the writer is killed while it publishes, then the directory is removed\n\n";
    killWriter(writer);
    writer = startWriter();
    good = nextWriterContinues(writer, incarnation) && good;
    removeDirectory();
    awaitOtherIncarnation(incarnation);
    good = everythingIsRead(writer) && end(writer) && good;

    std::cout << "\nAct 3: the writer is stopped while it writes\n\n";
    const Say say = [this](const std::string& event) { this->say(event); };
    good = playStoppedWriter(say) && good;

    std::cout << "\nAct 4: the table grows under its readers\n\n";
    return playGrowth(say) && good;
  }

 private:
  Child startWriter() const {
    return Child({sibling("quotes-writer"), "demo", "--slots", "16", "--rate", kRate, "--await",
                  std::to_string(kReaders)},
                 rows_);
  }

  void say(const std::string& event) const {
    const double seconds = static_cast<double>(monotonicNanoseconds() - begin_) / 1e9;
    std::cout << std::fixed << std::setprecision(4) << std::setw(8) << seconds << " s  " << event
              << std::endl;
  }

  void sayOfReader(unsigned index, const std::string& event) const {
    say("reader " + std::to_string(index + 1) + " " + event);
  }

  bool secondWriterIsRefused(const Child& writer) const {
    Child second = startWriter();
    const int code = second.awaitEnd(kDeadline);
    const std::string report = second.errors();
    say("a second writer ended with code " + std::to_string(code) + ":\n" + report);
    return code == 3 && report.find(":" + std::to_string(writer.pid()) + " ") != report.npos;
  }

  // How far a reader has read; 0 while it has no table.
  static uint64_t sequenceOf(Child& reader) {
    const std::string state = stateOf(reader, "reader ");
    return state == "reader without a table" ? 0 : std::stoull(field(state, "sequence"));
  }

  // In the middle of its rows.
  void killWriter(Child& writer) {
    const std::string pid = std::to_string(writer.pid());
    while (sequenceOf(readers_[0]) < kRowsBefore) {
    }
    const uint64_t killedAt = monotonicNanoseconds();
    writer.signal(SIGKILL);
    static_cast<void>(writer.awaitEnd(kDeadline));
    say("writer " + pid + " was killed");
    for (unsigned i = 0; i < kReaders; ++i) {
      const std::string event = readers_[i].awaitLine("event departed", kDeadline);
      const uint64_t after = std::stoull(field(event, "at")) - killedAt;
      sayOfReader(i, "noticed it " + std::to_string(after / 1000) + " us after the kill");
    }
  }

  /// True when it has the table of the one before it, with everything that readers have seen.
  bool nextWriterContinues(Child& writer, const std::string& incarnation) {
    const uint64_t seen = sequenceOf(readers_[0]);
    const std::string ready = writer.awaitLine("ready ", kDeadline);
    say("the next writer continues incarnation " + field(ready, "incarnation") + " at sequence " +
        field(ready, "sequence") + "; readers have seen " + std::to_string(seen));
    for (Child& reader : readers_) reader.awaitLine("event connected", kDeadline);
    return field(ready, "incarnation") == incarnation &&
           std::stoull(field(ready, "sequence")) >= seen;
  }

  void removeDirectory() const {
    const std::string path = root_.table();
    std::error_code error = std::make_error_code(std::errc::directory_not_empty);
    for (int i = 0; error == std::errc::directory_not_empty && i < 100; ++i) {
      std::filesystem::remove_all(path, error);  // while the writer makes it again
    }
    if (error) throw std::runtime_error("cannot remove " + path + ": " + error.message());
    say("the directory was removed, while the writer publishes");
  }

  void awaitOtherIncarnation(const std::string& old) {
    const std::string left = "has left incarnation " + old + " for ";
    for (unsigned i = 0; i < kReaders; ++i) {
      std::string mapped = old;
      while (mapped == old) {
        mapped = field(readers_[i].awaitLine("event mapped", kDeadline), "incarnation");
      }
      sayOfReader(i, left + mapped);
    }
  }

  /// True when all readers have read all rows in time. When not, their states tell which.
  bool everythingIsRead(Child& writer) {
    bool good = true;
    try {
      say("writer: " + writer.awaitLine("fed ", kPlayingSeconds));
      say("writer: " + writer.awaitLine("read ", kDeadline));
    } catch (const std::runtime_error& late) {
      say(late.what());
      good = false;
    }
    const std::string written = stateOf(writer, "writer ");
    say(written);
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
    const bool hasRead = same("incarnation") && same("sequence");
    const bool isEqual = same("digest") && same("symbols");
    sayOfReader(index, "is at sequence " + field(read, "sequence") + ", applied " +
                           field(read, "applied") + " changes, its copy " +
                           (!hasRead  ? "IS BEHIND"
                            : isEqual ? "equals the writer's table"
                                      : "DIFFERS"));
    return hasRead && isEqual;
  }

  bool end(Child& writer) {
    bool good = endsWell(writer);
    for (Child& reader : readers_) good = endsWell(reader) && good;
    return good;
  }

  bool endsWell(Child& process) const {
    const std::string pid = std::to_string(process.pid());
    process.signal(SIGTERM);
    const int code = process.awaitEnd(kDeadline);
    if (code != 0) say("process " + pid + " ended with code " + std::to_string(code));
    return code == 0;
  }

  std::string rows_;
  uint64_t begin_ = monotonicNanoseconds();
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
    const bool good = Play(argv[1]).run();
    std::cout << (good ? "\nEverything held." : "\nFAILED") << std::endl;
    return good ? 0 : 1;
  } catch (const std::exception& failure) {
    std::cerr << "quotes-demo: " << failure.what() << std::endl;
    return 1;
  }
}
