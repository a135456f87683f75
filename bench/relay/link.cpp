// SPDX-License-Identifier: MIT
#include "relay/link.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "harness/statistics.h"

namespace Bench {

namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), std::min(path.size(), sizeof address.sun_path - 1));
  return address;
}

int makeSocket() {
  return check(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket()");
}

// What is on its way from one socket to another.
class Direction {
 public:
  Direction(int from, int to) : from_(from), to_(to) {}

  int from() const { return from_; }

  void take(double due) {
    char bytes[16384];
    const ssize_t count = ::read(from_, bytes, sizeof bytes);
    if (count > 0) {
      parts_.push_back({due, std::string(bytes, static_cast<size_t>(count))});
    } else {
      isOver_ = true;
    }
  }

  bool isOver() const { return isOver_; }

  /// When the next part is due; infinity without one.
  double due() const { return parts_.empty() ? INFINITY : parts_.front().due; }

  void deliver(double now) {
    for (; due() <= now; parts_.pop_front()) {
      const std::string& bytes = parts_.front().bytes;
      const ssize_t count = ::send(to_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (count != static_cast<ssize_t>(bytes.size())) isOver_ = true;
    }
  }

 private:
  struct Part {
    double due;
    std::string bytes;
  };

  int from_;
  int to_;
  bool isOver_ = false;
  std::deque<Part> parts_;
};

// Sockets stay open to the end of the process, which carries a few connections only.
class Carrier {
 public:
  Carrier(int listener, std::string server, double delay)
      : listener_(listener), server_(std::move(server)), delay_(delay) {}

  void turn() {
    std::vector<pollfd> sockets{{listener_, POLLIN, 0}};
    for (const Direction& each : directions_) {
      sockets.push_back({each.isOver() ? -1 : each.from(), POLLIN, 0});
    }
    wait(sockets);
    const double now = nanoseconds();
    for (size_t each = 0; each < directions_.size(); ++each) {
      if (sockets[each + 1].revents != 0) directions_[each].take(now + delay_);
      directions_[each].deliver(now);
    }
    if (sockets[0].revents != 0) accept();
  }

 private:
  void wait(std::vector<pollfd>& sockets) const {
    double due = INFINITY;
    for (const Direction& each : directions_) due = std::min(due, each.due());
    const auto rest = static_cast<long>(std::clamp(due - nanoseconds(), 0.0, 0.9e9));
    const timespec timeout{0, rest};
    check(::ppoll(sockets.data(), sockets.size(), &timeout, nullptr), "ppoll()");
  }

  void accept() {
    const int host = check(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC), "accept4()");
    const int server = makeSocket();
    const sockaddr_un address = addressOf(server_);
    check(::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address),
          "connect()");
    directions_.emplace_back(host, server);
    directions_.emplace_back(server, host);
  }

  int listener_;
  std::string server_;
  double delay_;
  std::vector<Direction> directions_;
};

}  // namespace

Link::Link(const std::string& server, double delay) {
  const int listener = makeSocket();
  const sockaddr_un address = addressOf(socketPath());
  check(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind()");
  check(::listen(listener, 10), "listen()");
  process_.start(-1, [=] {
    check(::prctl(PR_SET_TIMERSLACK, 1), "prctl()");
    Carrier carrier(listener, server, delay);
    for (;;) carrier.turn();
  });
  process_.release();
  static_cast<void>(::close(listener));
}

}  // namespace Bench
