// SPDX-License-Identifier: MIT
#pragma once

#include "unit/table/table_clients.h"

#include "support/fixture.h"

#include <zorbe/table.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>

namespace Zorbe::Test {

/// A table as programs without an event loop use it.
class TableProgram
    : public TableClients<Table::Writer<uint32_t, Record>, Table::Reader<uint32_t, Record>> {
 protected:
  static constexpr std::chrono::seconds kDeadline{20};

  TableProgram() {
    handler.allowFailures();  // of connections that writers end
    options.log = &quiet_;
  }

  bool sees(Reader& reader, uint32_t key, int64_t value) {
    return waitUntil(reader, [&] { return has(key, value); });
  }

  template <class Done>
  bool waitUntil(Reader& reader, Done done) {
    const auto end = std::chrono::steady_clock::now() + kDeadline;
    while (!done()) {
      if (std::chrono::steady_clock::now() > end) return false;
      reader.wait(std::chrono::milliseconds(50));
      drain(reader);
    }
    return true;
  }

  static bool isReadable(int fd, int milliseconds) {
    pollfd waiting{fd, POLLIN, 0};
    return ::poll(&waiting, 1, milliseconds) == 1;
  }

  // Runs `body` in a child process and returns its exit code.
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(body());
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  class Quiet : public Brask::Platform::DebugHandler {
   public:
    bool isEnabled(int) override { return false; }
    void emit(std::ostringstream&, int) override {}
  };

  Quiet quiet_;
};

}  // namespace Zorbe::Test
