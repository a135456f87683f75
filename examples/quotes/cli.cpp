// SPDX-License-Identifier: MIT
#include "cli.h"

#include <getopt.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <zorbe/exceptions.h>

#include <charconv>
#include <csignal>
#include <iostream>
#include <stdexcept>

namespace Quotes {

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

// The one NAME; empty when --help is asked for.
static std::string parse(int argc, char** argv, const std::vector<Argument>& arguments) {
  std::vector<option> known(arguments.size() + 2);  // the last one ends the list
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const int value = arguments[i].takesValue ? required_argument : no_argument;
    known[i] = {arguments[i].name, value, nullptr, 0};
  }
  known[arguments.size()] = {"help", no_argument, nullptr, 'h'};
  int which = 0;
  for (int letter; (letter = ::getopt_long(argc, argv, "h", known.data(), &which)) != -1;) {
    if (letter == 'h') return "";
    if (letter != 0) throw std::invalid_argument("see --help");
    arguments[static_cast<std::size_t>(which)].take(optarg != nullptr ? optarg : "");
  }
  if (optind != argc - 1) throw std::invalid_argument("exactly one NAME is needed, see --help");
  return argv[optind];
}

int runProgram(int argc, char** argv, const char* usage, const std::vector<Argument>& arguments,
               const std::function<int(const std::string& name)>& run) {
  const std::string program = std::string(usage).substr(7, std::string(usage).find(" NAME") - 7);
  try {
    const std::string name = parse(argc, argv, arguments);
    if (!name.empty()) return run(name);
    std::cout << usage;
    return kOk;
  } catch (const std::invalid_argument& mistake) {
    std::cerr << program << ": " << mistake.what() << std::endl;
    return kUsage;
  } catch (const Zorbe::DuplicateWriterException& refused) {
    std::cerr << program << ": refused, process " << refused.pid << " (" << refused.owner
              << ") is the writer" << std::endl;
    return kDuplicateWriter;
  } catch (const std::exception& failure) {
    std::cerr << program << ": " << failure.what() << std::endl;
    return kFailure;
  }
}

Signals::Signals() {
  sigset_t wanted;
  ::sigemptyset(&wanted);
  for (const int number : {SIGINT, SIGTERM, SIGUSR1}) ::sigaddset(&wanted, number);
  if (::sigprocmask(SIG_BLOCK, &wanted, nullptr) == 0) {
    fd_ = ::signalfd(-1, &wanted, SFD_NONBLOCK | SFD_CLOEXEC);
  }
  if (fd_ < 0) throw std::runtime_error("signalfd() failed");
}

// They stay blocked: a program that ends already is not to end otherwise for a second one.
Signals::~Signals() {
  static_cast<void>(::close(fd_));
}

int Signals::take(int milliseconds) const {
  pollfd waiting{fd_, POLLIN, 0};
  signalfd_siginfo signal{};
  if (::poll(&waiting, 1, milliseconds) != 1) return 0;
  if (::read(fd_, &signal, sizeof signal) != sizeof signal) return 0;
  return static_cast<int>(signal.ssi_signo);
}

}  // namespace Quotes
