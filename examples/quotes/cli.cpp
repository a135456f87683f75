// SPDX-License-Identifier: MIT
#include "cli.h"

#include <getopt.h>
#include <zorbe/exceptions.h>

#include <charconv>
#include <csignal>
#include <iostream>
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

// Without SA_RESTART: a signal ends a connect(2) that waits for a stopped writer.
void handle(int number, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
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

int parseLevel(const std::string& text) {
  return text == "-1" ? -1 : static_cast<int>(parseNumber("--level", text, 0, 9));
}

std::optional<std::string> parseCommandLine(int argc, char** argv,
                                            const std::vector<Argument>& arguments) {
  std::vector<option> known;
  known.reserve(arguments.size() + 2);
  for (const Argument& argument : arguments) {
    known.push_back(
        {argument.name, argument.takesValue ? required_argument : no_argument, nullptr, 0});
  }
  known.push_back({"help", no_argument, nullptr, 'h'});
  known.push_back({});
  int which = 0;
  for (int letter; (letter = ::getopt_long(argc, argv, "h", known.data(), &which)) != -1;) {
    if (letter == 'h') return std::nullopt;
    if (letter != 0) throw std::invalid_argument("see --help");
    arguments[static_cast<std::size_t>(which)].take(optarg != nullptr ? optarg : "");
  }
  if (optind != argc - 1) throw std::invalid_argument("exactly one NAME is needed, see --help");
  return argv[optind];
}

int runProgram(const std::string& program, const std::function<int()>& run) {
  try {
    return run();
  } catch (const std::invalid_argument& mistake) {
    std::cerr << program << ": " << mistake.what() << std::endl;
    return kUsage;
  } catch (const Zorbe::DuplicateWriterException& refused) {
    // The library has logged the whole report already.
    std::cerr << program << ": refused, process " << refused.pid << " (" << refused.owner
              << ") is the writer" << std::endl;
    return kDuplicateWriter;
  } catch (const std::exception& failure) {
    std::cerr << program << ": " << failure.what() << std::endl;
    return kFailure;
  }
}

void runLoop(Brask::Linux::EventLoop& loop, const std::function<void()>& recover) {
  for (;;) {
    try {
      return loop.run();
    } catch (const Brask::Exception& failure) {
      std::cerr << failure.msg() << std::endl;
      recover();
    }
  }
}

Signals::Signals(Brask::Linux::EventLoop& loop) {
  signalledLoop.store(&loop);
  for (const int number : {SIGINT, SIGTERM, SIGUSR1}) handle(number, onSignal);
}

Signals::~Signals() {
  for (const int number : {SIGINT, SIGTERM, SIGUSR1})
    static_cast<void>(std::signal(number, SIG_IGN));
  signalledLoop.store(nullptr);
}

bool Signals::takePrintRequest() {
  return printRequested.exchange(false);
}

bool Signals::ended() const {
  return endRequested.load();
}

}  // namespace Quotes
