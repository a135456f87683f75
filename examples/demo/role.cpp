// SPDX-License-Identifier: MIT
#include "role.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <new>
#include <stdexcept>
#include <system_error>

#include "clock.h"

namespace Demo {

namespace {

[[noreturn]] void fail(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

}  // namespace

uint64_t Board::sum(std::atomic<uint64_t> Reader::*counter) const {
  uint64_t total = 0;
  for (const Reader& reader : readers) total += reader.*counter;
  return total;
}

uint64_t Board::least(std::atomic<uint64_t> Reader::*counter) const {
  uint64_t smallest = UINT64_MAX;
  for (const Reader& reader : readers) smallest = std::min<uint64_t>(smallest, reader.*counter);
  return smallest;
}

Board& makeBoard() {
  void* const memory =
      ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) fail("mmap()");
  return *new (memory) Board{};
}

// The child ends without the destructors of what the parent has made.
Role::Role(const std::function<void()>& act) : pid_(::fork()) {
  if (pid_ < 0) fail("fork()");
  if (pid_ > 0) return;
  try {
    act();
    ::_exit(0);
  } catch (const std::exception& failure) {
    std::cerr << "quotes-demo: " << failure.what() << std::endl;
    ::_exit(1);
  }
}

Role::~Role() {
  if (::kill(pid_, SIGKILL) == 0) static_cast<void>(::waitpid(pid_, nullptr, 0));
}

void Role::stop() const {
  if (::kill(pid_, SIGSTOP) != 0) fail("kill()");
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WEXITED | WNOWAIT) != 0) {
    if (errno != EINTR) fail("waitid()");
  }
  if (info.si_code != CLD_STOPPED) throw std::runtime_error("a process has ended by itself");
}

void Role::resume() const {
  if (::kill(pid_, SIGCONT) != 0) fail("kill()");
}

bool Role::isRunning() const {
  siginfo_t info{};
  const int result = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
  return result == 0 && info.si_pid == 0;
}

bool await(double seconds, const std::function<bool()>& condition) {
  constexpr timespec kLook{0, 200'000};
  const double end = static_cast<double>(monotonicNanoseconds()) + seconds * 1e9;
  while (!condition()) {
    if (static_cast<double>(monotonicNanoseconds()) > end) return false;
    static_cast<void>(::nanosleep(&kLook, nullptr));
  }
  return true;
}

std::string symbolOf(uint64_t number) {
  return "S" + std::to_string(number);
}

Quotes::Quote quoteOf(uint64_t number) {
  return {static_cast<int64_t>(number), static_cast<uint32_t>(~number)};
}

bool isWhole(const Quotes::Quote& quote) {
  return quote.size == static_cast<uint32_t>(~quote.price);
}

uint64_t Random::below(uint64_t limit) {
  uint64_t z = state_ += 0x9e3779b97f4a7c15;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
  z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
  return (z ^ (z >> 31)) % limit;
}

}  // namespace Demo
