// SPDX-License-Identifier: MIT
//
// The bundled loop in that of GLib.
#include <glib-unix.h>

#include "program.h"

namespace {

class Loop {
 public:
  Loop() : loop_(g_main_loop_new(nullptr, FALSE)) {}
  ~Loop() { g_main_loop_unref(loop_); }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  void run() { g_main_loop_run(loop_); }
  void quit() { g_main_loop_quit(loop_); }

 private:
  GMainLoop* loop_;
};

/// A source of the default context, until it is destroyed.
class Source {
 public:
  explicit Source(guint id) : id_(id) {}
  ~Source() { g_source_remove(id_); }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

 private:
  guint id_;
};

/// What both callbacks get.
struct Driven {
  Program program;
  Loop loop;
};

gboolean readable(int /*fd*/, GIOCondition condition, gpointer data) {
  auto& [program, loop] = *static_cast<Driven*>(data);
  const bool failed = (condition & (G_IO_ERR | G_IO_HUP | G_IO_NVAL)) != 0;
  if (!(failed ? program.fail("GLib reports an error") : program.turn())) loop.quit();
  return G_SOURCE_CONTINUE;
}

gboolean ticked(gpointer data) {
  auto& [program, loop] = *static_cast<Driven*>(data);
  if (!program.tick()) loop.quit();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int count, char** words) try {
  Driven driven{{count, words}, {}};
  // Destroyed before the descriptor that it polls.
  const Source poll(g_unix_fd_add(driven.program.fd(), G_IO_IN, readable, &driven));
  const Source timer(g_timeout_add(Program::kTickMilliseconds, ticked, &driven));
  driven.loop.run();
  driven.program.end();
} catch (const std::exception& failure) {
  std::cerr << "loops-glib: " << failure.what() << '\n';
  return 1;
}
