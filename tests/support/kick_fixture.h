// SPDX-License-Identifier: MIT
//
// For the tests of both ends: a table's writer as a client derives it.
#pragma once

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"
#include "support/raw_peer.h"

#include <zorbe/exceptions.h>
#include <zorbe/kick.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

namespace Zorbe::Test {

/// A step inside a callback.
using Hook = std::function<void()>;

class KickTest : public FakePlatformTest {
 protected:
  KickTest() { forget(); }

  /// The messages since `forget`, without those of namespace Util.
  std::vector<Message> takeMessages() {
    std::vector<Message> all = handler.take();
    const auto fromUtil = [](const Message& message) { return message.text.rfind("Util", 0) == 0; };
    all.erase(std::remove_if(all.begin(), all.end(), fromUtil), all.end());
    return all;
  }

  /// The first and the last message so far.
  Message first() const {
    return handler.messages().empty() ? noMessage() : handler.messages().front();
  }
  Message last() const {
    return handler.messages().empty() ? noMessage() : handler.messages().back();
  }

  void forget() {
    handler.clear();
    platform.takeCalls();
  }

  /// Notes in the platform's journal when this descriptor is closed.
  void noteCloseOf(int fd) {
    Fault::before("close", 1, [this, fd] {
      platform.note("close " + std::to_string(fd));
    }).onFd(fd);
  }

  static std::string reason(int error) { return std::strerror(error); }

  /// The text of the exception of `step`, a Brask::RuntimeException and none derived from it.
  static std::string refusal(const Hook& step) {
    try {
      step();
    } catch (const Brask::Exception& exception) {
      EXPECT_EQ(typeid(exception), typeid(Brask::RuntimeException));
      return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }

  static Message noMessage() { return {-1, "nothing was logged"}; }

  const std::string table = inRoot("quotes");
  RootPath root{handler, "quotes", true};
};

class TestWriter : public WriterKickSm {
 public:
  TestWriter(FakePlatform& fakes, Brask::Platform::DebugHandler& debugHandler, const RootPath& path,
             bool localOnly = false)
      : WriterKickSm(debugHandler, path, localOnly), fakes_(fakes) {}

  int expectReconnects() override {
    fakes_.note("expectReconnects");
    return returning;
  }
  void readersChanged() override {
    fakes_.note("readersChanged");
    if (onReadersChanged) onReadersChanged();
  }

  using WriterKickSm::kickCount;
  using WriterKickSm::kickSocket;
  using WriterKickSm::kickSocketCreated;
  using WriterKickSm::listenControl;
  using WriterKickSm::readers;
  using WriterKickSm::reconnectTimer;
  using WriterKickSm::sleepingReaders;
  using WriterKickSm::writerSequence;

  int returning = 0;
  Hook onReadersChanged;

 private:
  FakePlatform& fakes_;
};

/// A writer with a descriptor for each reader that connects.
class WriterTest : public KickTest {
 protected:
  /// The writer listens; the messages and calls so far are dropped.
  void listen() {
    writer->createKickSocket();
    writer->doEnableListen();
    forget();
  }

  /// A reader connects, and the loop reports it.
  RawPeer connectReader() {
    RawPeer reader = RawPeer::connect(table);
    platform.fd(0).fire();
    return reader;
  }

  /// The messages of an event of the listening socket without a connection.
  std::vector<Message> failedAccept(int error) const {
    return {{5, "WriterKickSm::handleReaderConnection() "},
            {0, "WriterKickSm::handleReaderConnection() accept() sd:" +
                    std::to_string(writer->kickSocket) + " " + reason(error)}};
  }

  /// The writer's control of the reader that connected as the `index`th, from 0.
  FakeFdControl& client(size_t index = 0) { return platform.fd(index + 1); }

  /// The reader reports, and the loop reports that.
  void report(RawPeer& reader, uint64_t sequence, size_t index = 0) {
    reader.report(sequence);
    client(index).fire();
  }

  std::unique_ptr<TestWriter> writer = std::make_unique<TestWriter>(platform, handler, root);
};

}  // namespace Zorbe::Test
