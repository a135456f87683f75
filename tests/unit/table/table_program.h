// SPDX-License-Identifier: MIT
#pragma once

#include "unit/table/table_clients.h"

#include "support/child_process.h"
#include "support/descriptor.h"
#include "support/fixture.h"

#include <zorbe/table.h>

#include <poll.h>
#include <sys/socket.h>
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

  // Runs `act` while a child lives that was forked before.
  template <class Act>
  static void besideAChild(Act act) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor own(ends[0]);
    const Descriptor childs(ends[1]);
    const pid_t child = ::fork();
    if (child == 0) {
      char byte = 0;
      exitChild(::write(childs.get(), "", 1) == 1 && ::read(childs.get(), &byte, 1) == 1 ? 0 : 1);
    }
    char forked = 0;
    ASSERT_EQ(::read(own.get(), &forked, 1), 1);
    act();
    ASSERT_EQ(::write(own.get(), "", 1), 1);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }

  class Quiet : public Brask::Platform::DebugHandler {
   public:
    bool isEnabled(int) override { return false; }
    void emit(std::ostringstream&, int) override {}
  };

  Quiet quiet_;
};

}  // namespace Zorbe::Test
