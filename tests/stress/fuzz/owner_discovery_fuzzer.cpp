// SPDX-License-Identifier: MIT
//
// Any text as /proc/net/unix, and any processes with any descriptors: the
// reported holder of the lock, and the messages, have to be those of a naive reading of both. A
// byte 1 of the text stands for the name that is looked for.
#include "sockets/sockaddr.h"
#include "stress/fuzz/fake_proc.h"
#include "stress/fuzz/fuzzer.h"
#include "support/fake_platform.h"
#include "support/recording_handler.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/util.h>

#include <cctype>
#include <sstream>

namespace Zorbe::Test::Fuzz {
namespace {

const int kSocketList = ::memfd_create("unix", MFD_CLOEXEC);
const std::string kHeading = "Util::readOwnerPid() ";

/// strtoul of base 10, as the manual has it.
uint64_t naiveNumber(const std::string& text) {
  size_t at = 0;
  const auto here = [&] { return at < text.size() ? text[at] : '\0'; };
  while (std::isspace(static_cast<unsigned char>(here())) != 0) ++at;
  const bool negative = here() == '-';
  if (negative || here() == '+') ++at;
  uint64_t value = 0;
  bool tooLarge = false;
  for (; here() >= '0' && here() <= '9'; ++at) {
    const auto digit = static_cast<uint64_t>(here() - '0');
    tooLarge = tooLarge || value > (UINT64_MAX - digit) / 10;
    value = value * 10 + digit;
  }
  if (tooLarge) return UINT64_MAX;
  return negative ? 0 - value : value;
}

/// The last field but one.
std::string naiveInode(const std::string& line) {
  std::vector<std::string> fields;
  std::istringstream stream(line + ' ');
  for (std::string field; std::getline(stream, field, ' ');) fields.push_back(field);
  return fields.size() < 2 ? "" : fields[fields.size() - 2];
}

/// The expected result.
struct Naive {
  unsigned pid = 0;
  bool failed = false;             // an exception
  std::vector<std::string> lines;  // that are read
  std::vector<std::string> notable;
};

class Search {
 public:
  Search(const FakeProc& proc, std::string name) : proc_(proc), name_(std::move(name)) {}

  Naive of(const std::string& text) {
    std::string line;
    for (const char c : text + '\n') {
      if (c != '\n') {
        line += c;
        continue;
      }
      read(line);
      line.clear();
      if (naive_.pid != 0 || naive_.failed) break;
    }
    return naive_;
  }

 private:
  void read(const std::string& line) {
    naive_.lines.push_back(kHeading + line);
    if (line.find(name_) == std::string::npos) return;
    const std::string token = naiveInode(line);
    const uint64_t inode = naiveNumber(token);
    if (inode == 0) {
      naive_.notable.push_back(kHeading + "Couldn't convert inode token \"" + token + "\" to U32.");
      return;
    }
    naive_.failed = !opens("/proc", proc_.error);
    for (const FakeProcess& process : proc_.processes) {
      if (naive_.pid == 0 && !naive_.failed) look(process, inode);
    }
    naive_.failed = naive_.failed || (naive_.pid == 0 && proc_.endError != 0);
  }

  bool opens(const std::string& path, int error) {
    if (error == 0) return true;
    if (error != EACCES && error != ENOENT && error != ENOTDIR) {
      naive_.notable.push_back("DirNode::DirNode() failed to open " + path +
                               " errno: " + std::strerror(error));
    }
    return false;
  }

  void look(const FakeProcess& process, uint64_t inode) {
    if (!opens("/proc/" + process.name + "/fd", process.error)) return;
    for (const FakeDescriptor& descriptor : process.descriptors) {
      if (naive_.pid == 0) look(process, descriptor, inode);
    }
  }

  void look(const FakeProcess& process, const FakeDescriptor& descriptor, uint64_t inode) {
    if (descriptor.error != 0) {
      naive_.notable.push_back(kHeading + "stat failed: " + std::strerror(descriptor.error));
    }
    if (descriptor.error != 0 || !S_ISSOCK(descriptor.mode) || descriptor.inode != inode) return;
    naive_.pid = process.name == "self" ? static_cast<unsigned>(::getpid())
                                        : static_cast<unsigned>(naiveNumber(process.name));
    if (naive_.pid != 0) return;
    naive_.notable.push_back(kHeading + "could not convert  pid directory string \"" +
                             process.name + "\" to U32");
  }

  const FakeProc& proc_;
  std::string name_;
  Naive naive_;
};

std::string withName(const std::string& text, const std::string& name) {
  std::string whole;
  for (const char c : text) c == '\1' ? whole += name : whole += c;
  return whole;
}

void list(const std::string& text) {
  const Fault::Bypass bypass;
  EXPECT_EQ(::ftruncate(kSocketList, 0), 0);
  EXPECT_EQ(::pwrite(kSocketList, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
  Fault::redirect("fopen", "/proc/net/unix", "/proc/self/fd/" + std::to_string(kSocketList));
}

void check(RecordingHandler& handler, const FakeProc& proc, const std::string& table,
           const Naive& naive) {
  std::string owner = "unchanged";
  handler.clear();
  try {
    EXPECT_EQ(Util::readOwnerPid(handler, table, owner), naive.pid);
    EXPECT_FALSE(naive.failed);
    EXPECT_EQ(owner, naive.pid == 0 ? "unchanged" : proc.executable);
  } catch (const Brask::RuntimeException&) {
    EXPECT_TRUE(naive.failed);
    EXPECT_EQ(owner, "unchanged");
  }
  EXPECT_EQ(handler.texts(1), naive.notable);
  EXPECT_EQ(handler.texts(0).size(), naive.failed && proc.error == 0 ? 1u : 0u);
  std::vector<std::string> lines = handler.texts(5);
  for (const std::string& line : naive.lines) {
    const auto found = std::find(lines.begin(), lines.end(), line);
    ASSERT_NE(found, lines.end());
    lines.erase(lines.begin(), found + 1);
  }
}

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER(input) {
  using namespace Zorbe::Test::Fuzz;
  FailureHandler handler;
  const std::string table = input.text().substr(0, 64);
  const FakeProc proc(input);
  const std::string name = Zorbe::TableAddress(handler, table).abstractName();
  const std::string text = withName(input.rest(), name);
  list(text);
  proc.install();
  check(handler, proc, table, Search(proc, name).of(text));
}
