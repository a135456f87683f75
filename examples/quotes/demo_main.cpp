// SPDX-License-Identifier: MIT
//
// quotes-demo: one writer, four readers and one writer too many, as real processes with
// a table of their own. Ends with 0 only when every reader has followed to the end.
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <csignal>
#include <cstdlib>

#include "child.h"

namespace {

using Quotes::Child;
using Quotes::field;

constexpr unsigned kReaders = 4;
constexpr const char* kRate = "20000";  // rows a second: readers fall asleep in between

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

 private:
  std::string path_;
};

Child startReader() {
  return Child({Quotes::sibling("quotes-reader"), "demo"});
}

Child startWriter(const std::string& rows) {
  return Child({Quotes::sibling("quotes-writer"), "demo", "--rate", kRate, "--await",
                std::to_string(kReaders)},
               rows);
}

bool secondWriterIsRefused(const std::string& rows, const Child& writer) {
  Child second = startWriter(rows);
  const int code = second.awaitEnd();
  const std::string report = second.errors();
  std::cout << "A second writer, meanwhile, ended with code " << code << ":\n" << report << '\n';
  return code == 3 && report.find(":" + std::to_string(writer.pid()) + " ") != report.npos;
}

/// Ends the process and returns the line by which it says how it went.
std::string finalReport(Child& process, const std::string& prefix) {
  process.signal(SIGTERM);
  const std::string line = process.awaitLine(prefix);
  if (const int code = process.awaitEnd(); code != 0) {
    throw std::runtime_error(prefix + " ended with code " + std::to_string(code) + ": " +
                             process.errors());
  }
  return line;
}

bool readerAgrees(unsigned number, const std::string& reader, const std::string& writer) {
  const bool awake = field(reader, "sequence") == field(writer, "sequence");
  const bool equal = field(reader, "digest") == field(writer, "digest");
  std::cout << "reader " << number << ": sequence " << field(reader, "sequence") << ", applied "
            << field(reader, "applied") << ", kicks " << field(reader, "kicks") << ", passes "
            << field(reader, "passes") << ", wake-up p50 " << field(reader, "p50us") << " us p99 "
            << field(reader, "p99us") << " us, copy " << field(reader, "digest") << ' '
            << (!awake  ? "LEFT ASLEEP"
                : equal ? "equals the writer's"
                        : "DIFFERS")
            << '\n';
  return awake && equal;
}

/// True when all rows were read in time. The readers' own reports tell which was not.
bool awaitReaders(Child& writer) {
  try {
    std::cout << "writer: " << writer.awaitLine("fed ", 60) << '\n';
    std::cout << "writer: " << writer.awaitLine("read ", 10) << '\n';
    return true;
  } catch (const std::runtime_error& late) {
    std::cout << "writer: " << late.what() << '\n';
    return false;
  }
}

bool run(const std::string& rows) {
  const TemporaryRoot root;
  std::vector<Child> readers;
  for (unsigned i = 0; i < kReaders; ++i) readers.push_back(startReader());
  Child writer = startWriter(rows);
  std::cout << "writer " << writer.pid() << ": " << writer.awaitLine("ready ") << std::endl;
  bool good = secondWriterIsRefused(rows, writer);
  good = awaitReaders(writer) && good;

  std::vector<std::string> reports;
  for (Child& reader : readers) reports.push_back(finalReport(reader, "reader "));
  const std::string written = finalReport(writer, "writer ");
  std::cout << written << '\n';
  for (unsigned i = 0; i < kReaders; ++i) good = readerAgrees(i + 1, reports[i], written) && good;
  return good;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "Usage: quotes-demo TICKS.CSV\n";
    return 2;
  }
  try {
    const bool good = run(argv[1]);
    std::cout << (good ? "All readers agree with the writer." : "FAILED") << std::endl;
    return good ? 0 : 1;
  } catch (const std::exception& failure) {
    std::cerr << "quotes-demo: " << failure.what() << std::endl;
    return 1;
  }
}
