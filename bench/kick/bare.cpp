// SPDX-License-Identifier: MIT
//
// The limit of any scheme: a wake-up and nothing else. The writer sleeps until the last
// reader has answered; the 8 bytes are in shared memory, and the end of a process is not noticed.
#include <linux/futex.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>

#include "harness/processes.h"
#include "kick/scheme.h"

namespace Bench {

namespace {

// What the writer and its one reader share.
struct Mailbox {
  std::atomic<uint32_t> published{0};
  std::atomic<uint32_t> answered{0};
  std::atomic<uint64_t> report{0};
};

class Bare : public Scheme {
 public:
  void open(int) override {}
  void settle() override { round(); }
  bool fansOut() const override { return false; }
};

class Eventfd : public Bare {
 public:
  ~Eventfd() override {
    for (const int fd : fds_) static_cast<void>(::close(fd));
  }
  std::string name() const override { return "eventfd"; }

  void prepare() override {
    mailbox_ = shared<Mailbox>();
    for (int& fd : fds_) fd = check(::eventfd(0, EFD_CLOEXEC), "eventfd()");
  }

  void read() override {
    for (;;) {
      wait(fds_[0]);
      mailbox_->report.store(mailbox_->published.load());
      wake(fds_[1]);
    }
  }

  void round() override {
    mailbox_->published.fetch_add(1);
    wake(fds_[0]);
    wait(fds_[1]);
  }

 private:
  static void wake(int fd) {
    const uint64_t one = 1;
    check(static_cast<int>(::write(fd, &one, sizeof one)), "write(eventfd)");
  }
  static void wait(int fd) {
    uint64_t count = 0;
    check(static_cast<int>(::read(fd, &count, sizeof count)), "read(eventfd)");
  }

  Mailbox* mailbox_ = nullptr;
  std::array<int, 2> fds_{-1, -1};
};

class Futex : public Bare {
 public:
  std::string name() const override { return "futex"; }
  void prepare() override { mailbox_ = shared<Mailbox>(); }

  void read() override {
    for (uint32_t seen = 0;;) {
      seen = waitUntilNot(mailbox_->published, seen);
      mailbox_->report.store(seen);
      change(mailbox_->answered, seen);
    }
  }

  void round() override {
    const uint32_t before = mailbox_->answered.load();
    change(mailbox_->published, mailbox_->published.load() + 1);
    waitUntilNot(mailbox_->answered, before);
  }

 private:
  static long call(std::atomic<uint32_t>& word, int operation, uint32_t value) {
    return ::syscall(SYS_futex, reinterpret_cast<uint32_t*>(&word), operation, value, nullptr,
                     nullptr, 0);
  }
  static void change(std::atomic<uint32_t>& word, uint32_t value) {
    word.store(value);
    check(static_cast<int>(call(word, FUTEX_WAKE, INT_MAX)), "futex(FUTEX_WAKE)");
  }
  static uint32_t waitUntilNot(std::atomic<uint32_t>& word, uint32_t value) {
    while (word.load() == value) {
      if (call(word, FUTEX_WAIT, value) < 0 && errno != EAGAIN) failed("futex(FUTEX_WAIT)");
    }
    return word.load();
  }

  Mailbox* mailbox_ = nullptr;
};

}  // namespace

std::unique_ptr<Scheme> makeEventfd() {
  return std::make_unique<Eventfd>();
}

std::unique_ptr<Scheme> makeFutex() {
  return std::make_unique<Futex>();
}

}  // namespace Bench
