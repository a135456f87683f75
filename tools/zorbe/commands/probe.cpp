// SPDX-License-Identifier: MIT
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "commands/commands.h"
#include "host/table.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

using Clock = std::chrono::steady_clock;

enum class Result { kAcknowledged, kNot, kRefused, kMissing };

struct Answer {
  Result result;
  const char* what;
};

[[noreturn]] void fail(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

// A reader's connection whose calls return at the deadline at the latest. SO_SNDTIMEO bounds even
// a connect to a stopped writer with a full queue: see socket(7).
class Connection {
 public:
  Connection(Handler& handler, const SocketAddress& address, Clock::time_point deadline)
      : deadline_(deadline), address_(address) {
    fd_ = Util::socket(handler, AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    if (fd_ < 0) fail("socket");
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { static_cast<void>(close(fd_)); }

  // Each returns 0 or an errno, EAGAIN at the deadline.
  int connect() {
    return bounded(SO_SNDTIMEO, [this] {
      return ::connect(fd_, reinterpret_cast<const sockaddr*>(&address_.bytes), address_.length);
    });
  }
  int report(uint64_t sequence) {
    return bounded(SO_SNDTIMEO,
                   [&] { return send(fd_, &sequence, sizeof sequence, MSG_NOSIGNAL); });
  }
  int awaitKick() {
    char kick;
    received_ = 0;
    const int error =
        bounded(SO_RCVTIMEO, [&] { return received_ = recv(fd_, &kick, sizeof kick, 0); });
    return error != 0 || received_ > 0 ? error : ECONNRESET;
  }

  // Reads the remaining kicks: closing a connection with unread data resets it, which the
  // writer would log as a failure.
  void drain() {
    char kick;
    while (recv(fd_, &kick, sizeof kick, MSG_DONTWAIT) > 0) continue;
  }

 private:
  // False after the deadline.
  bool limit(int option) {
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline_ - Clock::now()).count();
    if (left <= 0) return false;
    const timeval time = {left / 1000000, left % 1000000};
    if (setsockopt(fd_, SOL_SOCKET, option, &time, sizeof time) != 0) fail("setsockopt");
    return true;
  }

  template <typename Call>
  int bounded(int option, const Call& call) {
    while (limit(option)) {
      if (call() >= 0) return 0;
      if (errno != EINTR) return errno;
    }
    return EAGAIN;
  }

  Clock::time_point deadline_;
  SocketAddress address_;
  int fd_ = -1;
  ssize_t received_ = 0;
};

bool isDisconnected(int error) {
  return error == ECONNREFUSED || error == ECONNRESET || error == EPIPE;
}

// 0 is the only report that is valid for every writer.
Answer ask(Connection& connection) {
  int error = connection.connect();
  if (error == ECONNREFUSED) return {Result::kRefused, "no writer"};
  if (error == EAGAIN) return {Result::kNot, "not accepted in time: the writer's queue is full"};
  if (error == 0) error = connection.report(0);
  if (error == 0) error = connection.awaitKick();
  if (error == EAGAIN) return {Result::kNot, "connected, but not acknowledged in time"};
  if (isDisconnected(error)) return {Result::kNot, "the writer closed the connection"};
  if (error != 0) throw std::system_error(error, std::generic_category(), "the connection");
  connection.drain();
  return {Result::kAcknowledged, "acknowledged"};
}

// By the name of the lock first: to find a writer that spells the directory in another way
// takes a pass over all processes.
Answer ask(Handler& handler, const std::string& name, Clock::time_point deadline) {
  const RootPath root(handler, name, false);
  const SocketAddress own = addressOfPath(handler, root.path);
  {
    Connection connection(handler, own, deadline);
    const Answer answer = ask(connection);
    if (answer.result != Result::kRefused) return answer;
  }
  const Table table = inspect(handler, name);
  if (!table.isThere()) return {Result::kMissing, "no such table"};
  if (!table.writer) return {Result::kRefused, "no writer"};
  if (!table.sockets.listening) {
    return {Result::kNot, "the writer lock is held by a process that does not listen"};
  }
  Connection connection(handler, addressOfName(*table.socket), deadline);
  return ask(connection);
}

}  // namespace

int probe(Context& context, const std::string& name, double timeoutSeconds) {
  const auto start = Clock::now();
  const auto wait = std::chrono::microseconds(std::llround(timeoutSeconds * 1e6));
  const Answer answer = ask(context.handler, name, start + wait);
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const bool acknowledged = answer.result == Result::kAcknowledged;
  if (context.json) {
    print({{"name", utf8(name)},
           {"acknowledged", acknowledged},
           {"result", answer.what},
           {"seconds", seconds}});
  } else if (answer.result == Result::kMissing) {
    return reportMissing(inspect(context.handler, name));
  } else {
    char time[32];
    static_cast<void>(std::snprintf(time, sizeof time, "%.6f", seconds));
    std::cout << word(name) << ": " << answer.what << ", after " << time << " s\n";
  }
  return acknowledged ? kYes : kNo;
}

}  // namespace Zorbe::Tool
