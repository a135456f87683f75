// SPDX-License-Identifier: MIT
#include "cli.h"

#include <charconv>
#include <csignal>
#include <stdexcept>

namespace Quotes {

namespace {

// What a signal handler may touch: lock-free atomics, and stop(), which allows it.
std::atomic<Brask::Linux::EventLoop*> signalledLoop{nullptr};
std::atomic<bool> endRequested{false};
std::atomic<bool> printRequested{false};

extern "C" void onSignal(int number) {
  (number == SIGUSR1 ? printRequested : endRequested).store(true);
  if (Brask::Linux::EventLoop* loop = signalledLoop.load()) loop->stop();
}

void handle(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  if (::sigaction(number, &action, nullptr) != 0) throw std::runtime_error("sigaction() failed");
}

}  // namespace

uint64_t parseNumber(const std::string& option, const std::string& text, uint64_t least,
                     uint64_t most) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < least || number > most) {
    throw std::invalid_argument(option + " takes a number from " + std::to_string(least) + " to " +
                                std::to_string(most) + ", not '" + text + "'");
  }
  return number;
}

Signals::Signals(Brask::Linux::EventLoop& loop) {
  signalledLoop.store(&loop);
  for (const int number : {SIGINT, SIGTERM, SIGUSR1}) handle(number, onSignal);
}

Signals::~Signals() {
  for (const int number : {SIGINT, SIGTERM, SIGUSR1})
    static_cast<void>(std::signal(number, SIG_DFL));
  signalledLoop.store(nullptr);
}

bool Signals::takePrintRequest() {
  return printRequested.exchange(false);
}

bool Signals::ended() const {
  return endRequested.load();
}

}  // namespace Quotes
