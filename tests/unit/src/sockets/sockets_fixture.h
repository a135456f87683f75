// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"
#include "support/file_content.h"
#include "support/raw_peer.h"
#include "support/table_socket.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace Zorbe::Test {

class SocketsTest : public FakePlatformTest {
 protected:
  ~SocketsTest() override {
    const Fault::Bypass bypass;
    for (const int fd : kept_) EXPECT_EQ(close(fd), 0) << "descriptor " << fd;
  }

  /// A descriptor of the test's own, closed at its end.
  int keep(int fd) {
    if (fd >= 0) kept_.push_back(fd);
    return fd;
  }

  /// The system's text for an errno value.
  static std::string reason(int error) {
    const Fault::Bypass bypass;
    return std::strerror(error);
  }

  /// The messages of Util::socket(): what becomes of the namespace, and of the socket.
  static std::vector<Message> socketMessages(const std::string& entering,
                                             const std::string& opening) {
    return {{2, "Util::socket() success opening /proc/self/ns/net"},
            {2, "Util::socket() setnsByName() to " + entering},
            {2, "Util::socket() " + opening}};
  }

  /// The message of Util::releaseWriterLock().
  static std::vector<Message> releaseMessages() {
    return {{2, "Util::releaseWriterLock() successfully released writer-lock"}};
  }

  std::string makeFile(const std::string& name, const std::string& content) {
    putContent(inRoot(name), content);
    return inRoot(name);
  }

  /// What() of the `Exception` that `action` throws; a failure when it throws none.
  template <class Exception>
  static std::string thrownBy(const std::function<void()>& action) {
    try {
      action();
    } catch (const Exception& exception) {
      return exception.what();
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }

 private:
  std::vector<int> kept_;
};

}  // namespace Zorbe::Test
