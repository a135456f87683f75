// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fake_platform_test_fixture.h"
#include "support/table_socket.h"

#include <sys/socket.h>
#include <unistd.h>
#include <zorbe/unlock.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// A reader that notes when it is told that the writer has gone.
class Reader : public WriterUnlockSm {
 public:
  Reader(Brask::Platform::DebugHandler& debugHandler, const RootPath& root, FakePlatform& platform)
      : WriterUnlockSm(debugHandler, "label", root), platform_(platform) {}

  void writerUnlocked() override {
    platform_.note("writerUnlocked");
    if (onUnlocked) onUnlocked();
  }

  const std::string& label() const { return instanceName; }
  const RootPath& root() const { return rootPath; }

  std::function<void()> onUnlocked;

 private:
  FakePlatform& platform_;
};

/// A writer as readers see it: it listens, accepts and goes.
class Writer {
 public:
  explicit Writer(const TableSocket& table) : listening_(table.bind(8)) {}
  ~Writer() { stop(); }
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  bool listens() const { return listening_ >= 0; }

  /// The writer's end of the oldest connection that was not accepted yet; closed by `stop`.
  int accept() {
    const Fault::Bypass bypass;
    accepted_.push_back(accept4(listening_, nullptr, nullptr, SOCK_CLOEXEC));
    return accepted_.back();
  }

  /// Closes everything, as the end of the process would.
  void stop() {
    const Fault::Bypass bypass;
    for (const int fd : accepted_) EXPECT_EQ(close(fd), 0);
    accepted_.clear();
    if (listening_ < 0) return;
    EXPECT_EQ(close(listening_), 0);
    listening_ = -1;
  }

 private:
  int listening_;
  std::vector<int> accepted_;
};

class UnlockTest : public FakePlatformTest {
 protected:
  /// With messages and calls of the construction forgotten.
  UnlockTest() {
    handler.clear();
    platform.takeCalls();
  }

  void startWriter() {
    writer.emplace(table);
    ASSERT_TRUE(writer->listens());
  }

  void connect() {
    startWriter();
    reader->doConnect();
    writersEnd = writer->accept();
    handler.clear();
    platform.takeCalls();
  }

  /// What the reader watches.
  int watched() { return platform.fd(0).fd(); }

  /// "WriterUnlockSm::method() for instanceName=label".
  static std::string label(const std::string& method) {
    return "WriterUnlockSm::" + method + "() for instanceName=label";
  }

  /// The messages without those of the socket's own making.
  std::vector<Message> takeOwn() {
    std::vector<Message> own;
    for (const Message& message : handler.take()) {
      if (message.text.find("Util::") != 0) own.push_back(message);
    }
    return own;
  }

  RecordingHandler quiet;
  RootPath root{quiet, "quotes", true};
  TableSocket table{root.path};
  std::optional<Writer> writer;
  int writersEnd = -1;
  std::unique_ptr<Reader> reader = std::make_unique<Reader>(handler, root, platform);
};

}  // namespace Zorbe::Test
