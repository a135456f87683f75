// SPDX-License-Identifier: MIT
#include "top/terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace Zorbe::Tool {

namespace {

// The alternate screen, no cursor, no line breaks by the terminal; and back.
constexpr char kEnter[] = "\033[?1049h\033[?25l\033[?7l";
constexpr char kLeave[] = "\033[0m\033[?7h\033[?25h\033[?1049l";

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH, SIGTSTP, SIGCONT};

[[noreturn]] void fail(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

sigset_t handledSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : kSignals) sigaddset(&signals, signal);
  return signals;
}

void checkTerminal() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
    throw std::runtime_error("top needs a terminal; see list and metrics for programs");
  }
  const char* const type = std::getenv("TERM");
  if (type == nullptr || *type == '\0' || std::string(type) == "dumb") {
    throw std::runtime_error("top needs a terminal that can move its cursor: see TERM");
  }
}

int openSignals() {
  const sigset_t signals = handledSignals();
  const int fd = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd < 0) fail("signalfd()");
  return fd;
}

// An open file description of its own: the shell's must not become non-blocking. Where the
// terminal is another user's and cannot be opened, the shell's is used as it is.
int openOutput() {
  const int own = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  const int fd = own >= 0 ? own : fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  if (fd < 0) fail("fcntl(F_DUPFD_CLOEXEC)");
  return fd;
}

}  // namespace

Terminal::Terminal() : signals_((checkTerminal(), openSignals())), output_(openOutput()) {
  if (tcgetattr(STDIN_FILENO, &modes_) != 0) fail("tcgetattr()");
  const sigset_t signals = handledSignals();
  if (sigprocmask(SIG_BLOCK, &signals, &formerMask_) != 0) fail("sigprocmask()");
  enter();
}

// The signal that a terminal was closed may come after the end of the terminal was seen: it must
// not end the program differently.
Terminal::~Terminal() {
  leave();
  if (closed_) return;
  static_cast<void>(sigprocmask(SIG_SETMASK, &formerMask_, nullptr));  // valid arguments
}

// Ctrl-C and Ctrl-Z stay signals. Ctrl-S does not stop the output: it would stop the program, too.
void Terminal::enter() {
  termios modes = modes_;
  modes.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
  modes.c_iflag &= ~static_cast<tcflag_t>(IXON);
  modes.c_cc[VMIN] = 0;
  modes.c_cc[VTIME] = 0;
  if (tcsetattr(STDIN_FILENO, TCSANOW, &modes) != 0) closed_ = true;
  draw(kEnter);
}

// Of a terminal that is closed there is nothing to restore.
void Terminal::leave() noexcept {
  static_cast<void>(!write(output_.get(), kLeave, sizeof kLeave - 1));
  static_cast<void>(tcsetattr(STDIN_FILENO, TCSANOW, &modes_));
}

// Returns when the program is continued. A process whose shell cannot continue it is not stopped
// by this signal.
void Terminal::suspend() {
  leave();
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  static_cast<void>(raise(SIGTSTP));
  static_cast<void>(sigprocmask(SIG_UNBLOCK, &stop, nullptr));  // stops here
  static_cast<void>(sigprocmask(SIG_BLOCK, &stop, nullptr));
  enter();
}

Terminal::Size Terminal::size() const {
  winsize size{};
  if (ioctl(output_.get(), TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) {
    return {80, 24};
  }
  return {size.ws_col, size.ws_row};
}

void Terminal::draw(const std::string& frame) {
  for (std::size_t done = 0; done < frame.size() && !closed_;) {
    const ssize_t length = write(output_.get(), frame.data() + done, frame.size() - done);
    if (length >= 0) {
      done += static_cast<std::size_t>(length);
    } else if (errno == EAGAIN) {
      pollfd ready[] = {{output_.get(), POLLOUT, 0}, {signals_.get(), POLLIN, 0}};
      if (poll(ready, 2, -1) < 0 && errno != EINTR) fail("poll()");
      if (ready[1].revents != 0) return;
    } else if (errno != EINTR) {
      closed_ = true;
    }
  }
}

void Terminal::readSignals(TerminalEvents& events) {
  signalfd_siginfo info{};
  while (read(signals_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    const int signal = static_cast<int>(info.ssi_signo);
    if (signal == SIGTSTP) suspend();
    if (signal == SIGCONT) enter();  // a shell may have set modes of its own meanwhile
    if (signal == SIGTSTP || signal == SIGCONT || signal == SIGWINCH) {
      events.redraw = true;
    } else {
      events.ends = true;
    }
  }
}

void Terminal::readKeys(TerminalEvents& events) const {
  char keys[256];
  const ssize_t length = read(STDIN_FILENO, keys, sizeof keys);
  if (length > 0) events.keys.assign(keys, static_cast<std::size_t>(length));
  if (length < 0 && errno != EINTR && errno != EAGAIN) events.ends = true;
}

TerminalEvents Terminal::wait(std::chrono::milliseconds limit) {
  TerminalEvents events;
  pollfd ready[] = {{STDIN_FILENO, POLLIN, 0}, {signals_.get(), POLLIN, 0}};
  if (poll(ready, 2, static_cast<int>(limit.count())) < 0 && errno != EINTR) fail("poll()");
  if (ready[1].revents != 0) readSignals(events);
  if ((ready[0].revents & POLLIN) != 0) readKeys(events);
  if ((ready[0].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) closed_ = true;
  events.ends = events.ends || closed_;
  return events;
}

}  // namespace Zorbe::Tool
