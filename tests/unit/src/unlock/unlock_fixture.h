// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"
#include "support/raw_peer.h"
#include "support/table_socket.h"

#include <zorbe/unlock.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Zorbe::Test {

/// A reader that records when the departure of the writer is reported.
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

class UnlockTest : public FakePlatformTest {
 protected:
  /// With messages and calls of the construction forgotten.
  UnlockTest() {
    handler.clear();
    platform.takeCalls();
  }

  void startWriter() {
    writer = RawPeer::listen(root.path);
    ASSERT_TRUE(writer.isOpen());
  }

  void connect() {
    startWriter();
    reader->doConnect();
    writersEnd = writer.accept();
    handler.clear();
    platform.takeCalls();
  }

  /// Closes everything, as the end of the writer's process would.
  void stopWriter() {
    writersEnd.close();
    writer.close();
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
  RawPeer writer;
  RawPeer writersEnd;
  std::unique_ptr<Reader> reader = std::make_unique<Reader>(handler, root, platform);
};

}  // namespace Zorbe::Test
