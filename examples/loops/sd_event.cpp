// SPDX-License-Identifier: MIT
//
// The bundled loop in that of systemd, sd-event.
#include <sys/epoll.h>
#include <systemd/sd-event.h>

#include <system_error>

#include "program.h"

namespace {

constexpr uint64_t kTickMicroseconds = uint64_t{Program::kTickMilliseconds} * 1000;

void require(int result, const char* what) {
  if (result < 0) throw std::system_error(-result, std::generic_category(), what);
}

struct Unref {
  void operator()(sd_event* event) const { sd_event_unref(event); }
  void operator()(sd_event_source* source) const { sd_event_source_unref(source); }
};
using Event = std::unique_ptr<sd_event, Unref>;
using Source = std::unique_ptr<sd_event_source, Unref>;

int exitUnless(bool goesOn, sd_event_source* source) {
  return goesOn ? 0 : sd_event_exit(sd_event_source_get_event(source), 0);
}

int readable(sd_event_source* source, int /*fd*/, uint32_t events, void* data) {
  auto& program = *static_cast<Program*>(data);
  const bool failed = (events & (EPOLLERR | EPOLLHUP)) != 0;
  return exitUnless(failed ? program.fail("sd-event reports an error") : program.turn(), source);
}

int ticked(sd_event_source* source, uint64_t /*microseconds*/, void* data) {
  auto& program = *static_cast<Program*>(data);
  int armed = sd_event_source_set_time_relative(source, kTickMicroseconds);
  if (armed >= 0) armed = sd_event_source_set_enabled(source, SD_EVENT_ONESHOT);
  return exitUnless(armed < 0 ? program.fail("its timer cannot be armed") : program.tick(), source);
}

}  // namespace

int main(int count, char** words) try {
  Program program(count, words);
  sd_event* made = nullptr;
  require(sd_event_new(&made), "sd_event_new()");
  const Event event(made);
  sd_event_source* source = nullptr;
  require(sd_event_add_io(made, &source, program.fd(), EPOLLIN, readable, &program),
          "sd_event_add_io()");
  const Source poll(source);  // destroyed before the descriptor that it polls
  require(sd_event_add_time_relative(made, &source, CLOCK_MONOTONIC, kTickMicroseconds, 1000,
                                     ticked, &program),
          "sd_event_add_time_relative()");
  const Source timer(source);
  require(sd_event_loop(made), "sd_event_loop()");
  program.end();
} catch (const std::exception& failure) {
  std::cerr << "loops-sd-event: " << failure.what() << '\n';
  return 1;
}
