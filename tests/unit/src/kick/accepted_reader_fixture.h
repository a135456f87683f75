// SPDX-License-Identifier: MIT
#pragma once

#include "support/kick_fixture.h"

namespace Zorbe::Test {

/// A writer with one reader, whose connection it has accepted.
class AcceptedReaderTest : public WriterTest {
 protected:
  AcceptedReaderTest() {
    listen();
    reader = connectReader();
    fd = client().fd();
    number = std::to_string(fd);
    forget();
  }

  ReaderKickClientSm& accepted() { return *writer->readers.at(fd); }

  /// A message of handleReaderData, with what follows the descriptor.
  Message data(int level, const std::string& words) const {
    return {level, "ReaderKickClientSm::handleReaderData() socket:" + number + words};
  }

  /// The messages of an event that ends the connection, `words` among them.
  std::vector<Message> disconnected(std::vector<Message> words) const {
    words.insert(words.begin(), data(5, ""));
    words.push_back({5, "WriterKickSm::doCloseReaderConnection() socket:" + number});
    words.push_back({5, "ReaderKickClientSm::~ReaderKickClientSm()"});
    words.push_back({5, "ReaderKickClientSm::~ReaderKickClientSm() socket:" + number});
    return words;
  }

  RawPeer reader;
  int fd = -1;
  std::string number;
};

}  // namespace Zorbe::Test
