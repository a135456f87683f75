// SPDX-License-Identifier: MIT
//
// Any bytes in the small files of a root directory, which every user of the host may write:
// what is written has to be read back, and what is read has to be taken as a naive reading does.
#include "stress/fuzz/fuzzer.h"
#include "support/fake_platform.h"
#include "support/raw_peer.h"
#include "support/recording_handler.h"
#include "support/table_socket.h"
#include "support/test_root.h"

#include <fcntl.h>
#include <unistd.h>
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <cstdio>

namespace Zorbe::Test::Fuzz {
namespace {

const TestRoot kDirectory;
const std::string kPath = kDirectory.path();
const RawPeer kLock = RawPeer::bind(kPath);
std::vector<std::string> opened;
bool refused = false;  // the name is taken: from here on files are read

void put(const std::string& file, const std::string& content) {
  const Fault::Bypass bypass;
  const std::string whole = kPath + "/" + file;
  const int fd = ::open(whole.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  EXPECT_EQ(::write(fd, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  EXPECT_EQ(::close(fd), 0);
}

/// The value of strtol(3), cast.
unsigned naiveId(const std::string& content) {
  const std::string text = content.substr(0, content.find('\0'));
  const size_t begin = text.find_first_not_of(" \t\n\v\f\r");
  if (begin == std::string::npos) return 0;
  const bool negative = text[begin] == '-';
  size_t at = begin + (negative || text[begin] == '+' ? 1 : 0);
  const uint64_t limit = static_cast<uint64_t>(INT64_MAX) + (negative ? 1 : 0);
  uint64_t value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const auto digit = static_cast<uint64_t>(text[at] - '0');
    value = value > (limit - digit) / 10 ? limit : value * 10 + digit;
  }
  return static_cast<unsigned>(negative ? 0 - value : value);
}

class Files {
 public:
  explicit Files(Input& input) : input_(input) {}

  void run() {
    switch (input_.below(7)) {
      case 0:
        return incarnation(input_.rest());
      case 1:
        return incarnationAgain(input_.number<unsigned>());
      case 2:
        return writtenAndRead(input_.rest());
      case 3:
        return corruption(input_.rest());
      case 4:
        return name(input_.rest());
      case 5:
        return rootPath(input_.rest());
      default:
        return lastOwner(input_.rest());
    }
  }

 private:
  void incarnation(const std::string& content) {
    put("fenix", content);
    const unsigned id = naiveId(content);
    EXPECT_EQ(FenixFile::read(handler_, kPath), id);
    EXPECT_TRUE(FenixFile::validate(handler_, kPath, id));
    EXPECT_TRUE(handler_.texts(0).empty());
    const std::string text = "FenixFile::validate() fenix changed " + kPath +
                             " fenixId:" + std::to_string(id) +
                             " expectedId:" + std::to_string(id + 1);
    try {
      FenixFile::validate(handler_, kPath, id + 1);
      ADD_FAILURE() << "another incarnation was taken for the same";
    } catch (const CorruptionDetectedException& exception) {
      EXPECT_EQ(exception.what(), text);
    }
    EXPECT_EQ(handler_.texts(0), std::vector<std::string>{text});
  }

  void incarnationAgain(unsigned id) {
    FenixFile::write(handler_, kPath, id);
    EXPECT_EQ(Util::fileRead(handler_, kPath + "/fenix", true), std::to_string(id) + "\n");
    EXPECT_EQ(FenixFile::read(handler_, kPath), id);
  }

  void writtenAndRead(const std::string& content) {
    const std::string file = kPath + "/conquer.1";
    Util::fileWrite(handler_, file, content, false);
    EXPECT_EQ(Util::fileRead(handler_, file, true), content + "\n");
    EXPECT_TRUE(Util::touch(handler_, file));
    EXPECT_EQ(Util::fileRead(handler_, file, true), content + "\n");
    EXPECT_TRUE(handler_.texts(1).empty());
  }

  void corruption(const std::string& reason) {
    Util::writeCorruptionFile(handler_, kPath, reason);
    EXPECT_EQ(Util::fileRead(handler_, kPath + "/corruption-detected", true),
              "Pid " + std::to_string(::getpid()) + " thinks " + kPath +
                  " is corrupted: " + reason + "\n");
  }

  void name(const std::string& file) {
    const std::string all =
        "/slots/conquer.1/conquer.2/buckets/fenix/last-owner/corruption-detected/";
    const bool ours = !file.empty() && file.find('/') == std::string::npos &&
                      all.find("/" + file + "/") != std::string::npos;
    EXPECT_EQ(Util::isZorbeFile(handler_, file), ours);
  }

  void rootPath(const std::string& table) {
    const RootPath resolved(handler_, table, false);
    const std::string separator = table.empty() || table[0] == '/' ? "" : "/";
    EXPECT_EQ(resolved.path, kPath + separator + table);
    EXPECT_EQ(resolved.fullPath("slots"), resolved.path + "/slots");
  }

  void lastOwner(const std::string& note) {
    put("last-owner", note);
    const RootPath taken(handler_, "", false);
    put("slots", "");
    refused = false;
    Fault::before("bind", 1, [] { refused = true; });
    Fault::divert("fopen", openStreamNoted);
    Fault::divert("open", openNoted);
    Fault::redirect("opendir", "/proc", kPath);
    opened.clear();
    try {
      Util::acquireWriterLock(handler_, taken);
      ADD_FAILURE() << "there are two writers";
    } catch (const DuplicateWriterException& exception) {
      EXPECT_EQ(exception.lastOwner, note);
      EXPECT_EQ(exception.pid, 0u);
      expectReport(exception.what(), note);
    }
    // The system takes a name up to its first zero.
    const std::string stat = ("/proc/" + notedPid(note) + "/stat").c_str();
    EXPECT_EQ(opened, (std::vector<std::string>{kPath + "/last-owner", stat, "/proc/net/unix"}));
  }

  // Each file that a refused writer reads. Other processes are none of the input's.
  static FILE* openStreamNoted(const char* file, const char* mode) {
    const Fault::Bypass bypass;
    return ::fopen(noted(file).c_str(), mode);
  }
  static int openNoted(const char* file, int flags, mode_t mode) {
    const Fault::Bypass bypass;
    return ::open(refused ? noted(file).c_str() : file, flags, mode);
  }
  static std::string noted(const char* file) {
    opened.emplace_back(file);
    return opened.back().rfind("/proc", 0) == 0 ? kPath + "/slots" : file;
  }

  static std::string notedPid(const std::string& note) {
    std::string pid = note;
    if (const size_t colon = pid.find(':'); colon != std::string::npos) pid.erase(0, colon + 1);
    return pid.erase(std::min(pid.find(' '), pid.size()));
  }

  void expectReport(const std::string& what, const std::string& note) {
    const std::string report = "Util::acquireWriterLock() duplicate writer detected :0 " + kPath +
                               " socket:" + TableSocket(kPath).abstractName() +
                               " lastOwner:" + note + " /proc/" + notedPid(note) + "/stat: ";
    EXPECT_EQ(what, report.c_str());
    EXPECT_EQ(handler_.texts(0), std::vector<std::string>{report});
  }

  Input& input_;
  FailureHandler handler_;
  FakePlatform platform_;
};

}  // namespace
}  // namespace Zorbe::Test::Fuzz

ZORBE_FUZZER_OF(Files)
