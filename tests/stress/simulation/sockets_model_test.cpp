// SPDX-License-Identifier: MIT
//
// The simulated sockets against the kernel's: the same calls in the same order have the same
// results.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <functional>

#include "fault/fault.h"
#include "stress/simulation/system_calls.h"
#include "stress/simulation/world.h"

namespace Zorbe::Test::Simulation {
namespace {

using Journal = std::vector<std::string>;

/// Makes calls on sockets and records their results.
class Caller {
 public:
  explicit Caller(const std::string& name) {
    address_.sun_family = AF_UNIX;
    name.copy(address_.sun_path + 1, sizeof address_.sun_path - 1);
    length_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  }

  int socket() { return ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }
  void bind(int fd) { tell("bind", ::bind(fd, address(), length_)); }
  void listen(int fd, int backlog) { tell("listen", ::listen(fd, backlog)); }
  void connect(int fd) { tell("connect", ::connect(fd, address(), length_)); }
  void close(int fd) { tell("close", ::close(fd)); }
  void send(int fd, const std::string& data) {
    tell("send", ::send(fd, data.data(), data.size(), MSG_NOSIGNAL));
  }
  void shutdown(int fd) { tell("shutdown", ::shutdown(fd, SHUT_RDWR)); }
  void poll(int fd) {
    pollfd entry{fd, POLLOUT, 0};
    tell("poll", ::poll(&entry, 1, 0));
    journal.back() += " " + std::to_string(entry.revents);
  }
  int accept(int fd) {
    const int accepted = ::accept(fd, nullptr, nullptr);
    tell("accept", std::min(accepted, 0));
    return accepted;
  }
  void receive(int fd) {
    char data[8] = {};
    const ssize_t size = ::recv(fd, data, sizeof data, MSG_DONTWAIT);
    tell("recv", size);
    if (size > 0) journal.back() += " " + std::string(data, static_cast<size_t>(size));
  }

  Journal journal;

 private:
  const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&address_); }
  void tell(const std::string& call, ssize_t rc) {
    journal.push_back(call + " " + (rc < 0 ? std::strerror(errno) : std::to_string(rc)));
  }

  sockaddr_un address_{};
  socklen_t length_;
};

using Script = std::function<void(Caller&)>;

class ScriptProgram : public Program {
 public:
  ScriptProgram(const Script& script, Caller& caller) : script_(script), caller_(caller) {}
  void start() override { script_(caller_); }

 private:
  const Script& script_;
  Caller& caller_;
};

class SocketsModelTest : public testing::Test {
 protected:
  SocketsModelTest() {
    divertSocketCalls();
    divertFileCalls();
  }
  ~SocketsModelTest() override { Fault::reset(); }

  static Journal real(const Script& script) {
    Caller caller("zorbe-model-" + std::to_string(::getpid()));
    script(caller);
    return caller.journal;
  }

  static Journal simulated(const Script& script) {
    Caller caller("zorbe-model");
    World world(1, false);
    Process& process = world.start(
        "caller", [&](Process&) { return std::make_unique<ScriptProgram>(script, caller); });
    while (!process.isWaiting()) process.run(nullptr);
    return caller.journal;
  }

  static void compare(const Script& script) {
    const Journal expected = real(script);
    EXPECT_FALSE(expected.empty());
    EXPECT_EQ(simulated(script), expected);
  }

  static int listening(Caller& call, int backlog = 5) {
    const int fd = call.socket();
    call.bind(fd);
    call.listen(fd, backlog);
    return fd;
  }

  /// A listener, a client, and the accepted end of its connection.
  static std::array<int, 3> connected(Caller& call) {
    const int server = listening(call), client = call.socket();
    call.connect(client);
    return {server, client, call.accept(server)};
  }
};

TEST_F(SocketsModelTest, ANameIsTakenUntilItsSocketIsClosed) {
  compare([](Caller& call) {
    const int first = call.socket(), second = call.socket();
    call.bind(first);
    call.bind(second);
    call.close(first);
    call.bind(second);
    call.bind(second);
    call.close(second);
  });
}

TEST_F(SocketsModelTest, ConnectingIsRefusedUnlessASocketListens) {
  compare([](Caller& call) {
    const int client = call.socket(), server = call.socket();
    call.connect(client);
    call.bind(server);
    call.connect(client);
    call.listen(server, 1);
    call.connect(client);
    call.connect(client);
    call.close(server);
    call.close(client);
  });
}

TEST_F(SocketsModelTest, TheBacklogHoldsOneMoreThanItsNumber) {
  compare([](Caller& call) {
    const int server = listening(call, 1);
    const int clients[] = {call.socket(), call.socket(), call.socket()};
    for (const int fd : clients) call.connect(fd);
    const int end = call.accept(server);
    call.connect(clients[2]);
    for (const int fd : clients) call.close(fd);
    call.close(end);
    call.close(server);
  });
}

TEST_F(SocketsModelTest, MessageBoundariesArePreservedAndExcessBytesAreLost) {
  compare([](Caller& call) {
    const int server = listening(call), client = call.socket();
    call.accept(server);
    call.connect(client);
    call.send(client, "one");
    call.send(client, "much too long");
    const int end = call.accept(server);
    for (int i = 0; i < 3; ++i) call.receive(end);
    for (const int fd : {end, client, server}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, PacketsOutliveTheirSenderAndThenTheEndIsSeen) {
  compare([](Caller& call) {
    const int server = listening(call), client = call.socket();
    call.connect(client);
    call.send(client, "last");
    call.close(client);
    const int end = call.accept(server);
    for (int i = 0; i < 3; ++i) call.receive(end);
    call.send(end, "late");
    for (const int fd : {end, server}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, UnreadPacketsResetTheConnection) {
  compare([](Caller& call) {
    const auto [server, client, end] = connected(call);
    call.send(end, "unread");
    call.send(client, "on its way");
    call.close(client);
    for (int i = 0; i < 3; ++i) call.receive(end);
    for (const int fd : {end, server}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, AConnectionThatIsShutDownDeliversWhatHasArrived) {
  compare([](Caller& call) {
    const auto [server, client, accepted] = connected(call);
    call.poll(client);
    call.send(client, "a");
    call.send(accepted, "b");
    call.shutdown(accepted);
    for (const int end : {client, accepted}) {
      call.poll(end);
      call.send(end, "late");
      call.receive(end);
      call.receive(end);
    }
    for (const int fd : {accepted, client, server}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, AnErrorIsReportedOnceByASendToo) {
  compare([](Caller& call) {
    const auto [server, client, end] = connected(call);
    call.send(end, "unread");
    call.close(client);
    for (int i = 0; i < 2; ++i) call.send(end, "x");
    call.receive(end);
    for (const int fd : {end, server}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, AListenerThatGoesResetsWhatItHasNotAccepted) {
  compare([](Caller& call) {
    const int server = listening(call), client = call.socket();
    call.connect(client);
    call.send(client, "unseen");
    call.close(server);
    for (int i = 0; i < 2; ++i) call.receive(client);
    call.send(client, "late");
    call.close(client);
  });
}

TEST_F(SocketsModelTest, AConnectionOutlivesItsListener) {
  compare([](Caller& call) {
    const auto [server, client, end] = connected(call);
    call.close(server);
    call.send(client, "x");
    call.receive(end);
    call.send(end, "y");
    call.receive(client);
    for (const int fd : {end, client}) call.close(fd);
  });
}

TEST_F(SocketsModelTest, SocketsWithoutAPeerNeitherSendNorReceive) {
  compare([](Caller& call) {
    const int server = listening(call), fresh = call.socket();
    call.send(fresh, "x");
    call.receive(fresh);
    call.send(server, "x");
    call.receive(server);
    call.accept(fresh);
    call.listen(fresh, 1);
    for (const int fd : {fresh, server}) call.close(fd);
  });
}

}  // namespace
}  // namespace Zorbe::Test::Simulation
