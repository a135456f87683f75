// SPDX-License-Identifier: MIT
//
// The floor: the kick channel's system calls on the same kind of socket, and nothing around
// them. No library, no loop objects, no logging.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include "harness/processes.h"
#include "harness/roles.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

void watch(int poller, int fd) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = fd;
  check(::epoll_ctl(poller, EPOLL_CTL_ADD, fd, &event), "epoll_ctl()");
}

class Floor : public Scheme {
 public:
  ~Floor() override {
    for (const int fd : fds_) static_cast<void>(::close(fd));
    if (listener_ >= 0) static_cast<void>(::close(listener_));
    if (poller_ >= 0) static_cast<void>(::close(poller_));
  }

  std::string name() const override { return "floor"; }

  void prepare() override {
    published_ = shared<Published>();
    address_.sun_family = AF_UNIX;
    const std::string path = "zorbe-bench-floor-" + std::to_string(::getpid()) + "-" +
                             std::to_string(reinterpret_cast<uintptr_t>(published_));
    path.copy(address_.sun_path + 1, sizeof address_.sun_path - 2);
  }

  void read() override {
    const int fd = openSocket(SOCK_SEQPACKET | SOCK_CLOEXEC);
    check(::connect(fd, address(), sizeof address_), "connect()");
    check(::fcntl(fd, F_SETFL, O_NONBLOCK), "fcntl()");
    const int poller = check(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1()");
    watch(poller, fd);
    report(fd);
    std::array<epoll_event, 1024> events;
    for (;;) {
      check(::epoll_wait(poller, events.data(), events.size(), -1), "epoll_wait()");
      if (!drain(fd, 32)) return;
      report(fd);
    }
  }

  void open(int readers) override {
    readers_ = readers;
    poller_ = check(::epoll_create1(EPOLL_CLOEXEC), "epoll_create1()");
    listener_ = openSocket(SOCK_SEQPACKET | SOCK_CLOEXEC);
    check(::bind(listener_, address(), sizeof address_), "bind()");
    check(::listen(listener_, 5), "listen()");
  }

  void settle() override {
    for (int each = 0; each < readers_; ++each) {
      const int flags = SOCK_NONBLOCK | SOCK_CLOEXEC;
      fds_.push_back(check(::accept4(listener_, nullptr, nullptr, flags), "accept4()"));
      watch(poller_, fds_.back());
    }
    collect();
  }

  void round() override {
    published_->store(++sequence_, std::memory_order_release);
    for (const int fd : fds_) check(static_cast<int>(::send(fd, "#", 1, 0)), "send()");
    collect();
  }

 private:
  static int openSocket(int type) { return check(::socket(AF_UNIX, type, 0), "socket()"); }

  const sockaddr* address() const { return reinterpret_cast<const sockaddr*>(&address_); }

  void report(int fd) {
    const uint64_t sequence = published_->load(std::memory_order_acquire);
    check(static_cast<int>(::send(fd, &sequence, sizeof sequence, 0)), "send()");
  }

  static bool drain(int fd, size_t size) {
    char buffer[32];
    ssize_t received;
    while ((received = ::recv(fd, buffer, size, 0)) > 0) {
    }
    return received < 0 && errno == EAGAIN;
  }

  void collect() {
    for (int answers = 0; answers < readers_;) {
      const int ready =
          check(::epoll_wait(poller_, events_.data(), static_cast<int>(events_.size()), -1),
                "epoll_wait()");
      for (int each = 0; each < ready; ++each) {
        if (drain(events_[static_cast<size_t>(each)].data.fd, sizeof(uint64_t))) ++answers;
      }
    }
  }

  Published* published_ = nullptr;
  sockaddr_un address_{};
  uint64_t sequence_ = 0;
  int readers_ = 0;
  int poller_ = -1;
  int listener_ = -1;
  std::vector<int> fds_;
  std::array<epoll_event, 1024> events_;
};

}  // namespace

std::unique_ptr<Scheme> makeFloor() {
  return std::make_unique<Floor>();
}

}  // namespace Bench
