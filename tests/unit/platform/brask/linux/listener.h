// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <vector>

#include "support/noncopyable.h"

namespace LoopTesting {

/// A listening socket, and the clients that have connected to it.
class Listener : private Zorbe::Test::NonCopyable {
 public:
  Listener() {
    name_.sun_family = AF_UNIX;  // the kernel picks a name
    EXPECT_EQ(0, ::bind(fd, name(), size_));
    EXPECT_EQ(0, ::listen(fd, 100));
    size_ = sizeof name_;
    EXPECT_EQ(0, ::getsockname(fd, name(), &size_));
  }
  ~Listener() {
    ::close(fd);
    for (const int client : clients_) ::close(client);
  }

  void connect() {
    clients_.push_back(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    EXPECT_EQ(0, ::connect(clients_.back(), name(), size_));
  }

  const int fd = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);

 private:
  sockaddr* name() { return reinterpret_cast<sockaddr*>(&name_); }

  sockaddr_un name_{};
  socklen_t size_ = sizeof(sa_family_t);
  std::vector<int> clients_;
};

}  // namespace LoopTesting
