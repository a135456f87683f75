// SPDX-License-Identifier: MIT
//
// Runs a number of kick rounds, both sides in one process, or dispatches a number of
// descriptor events, for a tool that counts instructions.
// usage: rounds kick|event <count>
#include <brask/linux/event_loop.h>
#include <brask/platform.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>

#include "kick/one_process.h"

namespace {

using Bench::check;

void kick(int count) {
  Bench::OneProcess both(1);
  for (int each = 0; each < count; ++each) both.round();
}

struct Events : Brask::Platform::FdEventHandler {
  void fdEvent(int) override { ++count; }
  int count = 0;
};

void dispatch(int count) {
  Brask::Linux::EventLoop loop;
  Events events;
  const int ready = check(::eventfd(1, EFD_CLOEXEC), "eventfd()");
  {
    const std::unique_ptr<Brask::Platform::FdControl> control(
        Brask::Platform::getFdControl(&events));
    control->watch(ready);
    while (events.count < count) loop.turn(0);
  }
  check(::close(ready), "close()");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int count = std::atoi(argv[2]);
  if (std::strcmp(argv[1], "kick") == 0) kick(count);
  if (std::strcmp(argv[1], "event") == 0) dispatch(count);
  return 0;
}
