// SPDX-License-Identifier: MIT
//
// How far a transfer of all records is.
#include "progress/status_line.h"
#include "support/descriptor.h"
#include "unit/relay/relay_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <set>

namespace Zorbe::Test {
namespace {

using Relay::Progress;

class RelayProgressTest : public RelayTest {
 protected:
  /// 40 batches, of which a turn of the loop sends 8 at most.
  static constexpr uint32_t kRecords = 40000;

  /// As the table here has them.
  void fillTable() {
    writer = std::make_unique<Writer>("t", at("here"));
    for (uint32_t key = 0; key < kRecords; ++key) writer->put(key, {key, 0});
    writer->publish();
  }

  uint64_t total_ = 0;  // as it was said last

  /// What it says until `done`, by step; each part of the whole.
  std::map<std::string, std::set<uint64_t>> record(
      const std::function<std::optional<Progress>()>& progress, const std::function<bool()>& done) {
    std::map<std::string, std::set<uint64_t>> seen;
    EXPECT_TRUE(turnUntil([&] {
      if (const auto now = progress()) {
        EXPECT_TRUE(now->total == 0 || now->done <= now->total) << now->step;
        EXPECT_LE(now->records, kRecords);
        total_ = now->total;
        seen[now->step].insert(now->records);
      }
      return done();
    }));
    EXPECT_FALSE(progress());
    return seen;
  }
};

TEST_F(RelayProgressTest, IsWrittenAsOneLine) {
  EXPECT_EQ(Relay::print("t", {"sending", 0, 0, 0}), "t: sending, 0 records");
  EXPECT_EQ(Relay::print("t", {"sending", 1, 3, 10}), "t: sending, 33 %, 10 records");
  EXPECT_EQ(Relay::print("t", {"receiving", 5, 3, 10}), "t: receiving, 100 %, 10 records");
}

TEST_F(RelayProgressTest, APublisherSendsThenComparesAndAMirrorReceives) {
  fillTable();
  makePublisher();
  const auto wanted = std::to_string(kRecords);
  const auto hasAll = [&] { return server().ask({"HLEN", "zorbe:{t}:records"}) == wanted; };
  const auto isSent = [&] { return hasAll() && !publisher->progress(); };
  const auto sending = record([&] { return publisher->progress(); }, isSent);
  EXPECT_GT(sending.at("sending").size(), 3u);
  EXPECT_EQ(total_, kRecords);

  publisher.reset();
  makePublisher();
  const auto isDone = [&] {
    return publisher->figures().comparisons == 1 && !publisher->progress();
  };
  const auto again = record([&] { return publisher->progress(); }, isDone);
  EXPECT_GT(again.at("comparing").size(), 3u);
  EXPECT_EQ(total_, kRecords);

  makeMirror();
  reader = std::make_unique<Reader>("t", at("there"));
  const auto isReceived = [&] {
    return contentOf(*reader).size() == kRecords && !mirror->progress();
  };
  const auto receiving = record([&] { return mirror->progress(); }, isReceived);
  EXPECT_GT(receiving.at("receiving").size(), 3u);
  EXPECT_EQ(total_, kRecords);
}

TEST_F(RelayProgressTest, EndsWithTheConnection) {
  fillTable();
  makePublisher();
  EXPECT_TRUE(turnUntil([&] { return publisher->progress().has_value(); }));
  server().kill();
  EXPECT_TRUE(turnUntil([&] { return !publisher->progress().has_value(); }));
}

TEST_F(RelayProgressTest, OfAMirrorEndsWithTheConnection) {
  fillTable();
  makePublisher();
  EXPECT_TRUE(turnUntil([&] {
    return server().ask({"HLEN", "zorbe:{t}:records"}) == std::to_string(kRecords);
  }));
  makeMirror();
  EXPECT_TRUE(turnUntil([&] { return mirror->progress().has_value(); }));
  server().kill();
  EXPECT_TRUE(turnUntil([&] { return !mirror->progress().has_value(); }));
}

// Standard error of this process, until the end of the test.
class StandardError {
 public:
  explicit StandardError(Descriptor to) : kept_(::dup(STDERR_FILENO)) {
    EXPECT_EQ(::dup2(to.get(), STDERR_FILENO), STDERR_FILENO);
  }
  ~StandardError() { EXPECT_EQ(::dup2(kept_.get(), STDERR_FILENO), STDERR_FILENO); }

 private:
  Descriptor kept_;
};

struct Terminal {
  Terminal() {
    const winsize size{24, 30, 0, 0};
    EXPECT_EQ(::grantpt(master.get()), 0);
    EXPECT_EQ(::unlockpt(master.get()), 0);
    EXPECT_EQ(::ioctl(master.get(), TIOCSWINSZ, &size), 0);
  }
  Descriptor slave() const {
    return Descriptor(::open(::ptsname(master.get()), O_RDWR | O_NOCTTY));
  }

  /// What was written so far: the kernel passes it on in its own time, before the mark.
  std::string read() const {
    std::cerr << kMark << std::flush;
    std::string text;
    while (text.empty() || text.back() != kMark) {
      pollfd fds{master.get(), POLLIN, 0};
      char bytes[4096];
      if (::poll(&fds, 1, 10000) != 1) return text + " and no more";
      const ssize_t size = ::read(master.get(), bytes, sizeof bytes);
      if (size > 0) text.append(bytes, static_cast<size_t>(size));
    }
    text.pop_back();
    return text;
  }

  static constexpr char kMark = '~';
  Descriptor master{::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
};

TEST_F(RelayProgressTest, ATerminalShowsItInOneLineBelowTheMessages) {
  const Terminal terminal;
  std::string first, message, last, end;
  {
    const StandardError toTerminal(terminal.slave());
    Relay::StatusLine line;
    Relay::LogAboveLine log(line, 1);
    std::optional<Progress> progress = Progress{"sending", 1, 2, 10};
    Relay::ProgressDisplay display(line, "quite a long name", [&] { return progress; });
    EXPECT_TRUE(turnUntil([&] { return !(first = terminal.read()).empty(); }));
    std::ostringstream text("a message");
    log.emit(text, 1);
    message = terminal.read();
    display.update();
    terminal.read();
    progress.reset();
    display.update();
    last = terminal.read();
    display.update();
    end = terminal.read();
  }
  EXPECT_EQ(first, "\r\033[K\"quite a long name\": sendi...");
  EXPECT_EQ(message.rfind("\r\033[K", 0), 0u);
  EXPECT_THAT(message, ::testing::HasSubstr("1 a message"));
  EXPECT_EQ(last, "\r\033[K");
  EXPECT_EQ(end, "");
}

TEST_F(RelayProgressTest, NothingButATerminalShowsIt) {
  const std::string path = inRoot("log");
  {
    const StandardError toFile(Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT, 0600)));
    Relay::StatusLine line;
    Relay::ProgressDisplay display(line, "t", [] { return Progress{"sending", 1, 2, 10}; });
    display.update();
  }
  EXPECT_EQ(std::filesystem::file_size(path), 0u);
}

}  // namespace
}  // namespace Zorbe::Test
