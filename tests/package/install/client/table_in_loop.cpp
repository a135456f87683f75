// SPDX-License-Identifier: MIT
//
// A table in an event loop, of the installed package. Exits with 0 when it works.
#include <brask/linux/event_loop.h>
#include <zorbe/table/in_loop.h>

#include <iostream>

int main() {
  Brask::Linux::EventLoop loop;
  Zorbe::Table::LoopWriter<int, int> writer("looped");
  Zorbe::Table::LoopReader<int, int> reader("looped");
  int seen = 0;
  reader.onReady([&] {
    while (const auto change = reader.next()) seen = change->value;
    if (seen == 20) loop.stop();
  });
  writer.put(1, 20);
  loop.run();
  std::cout << (reader.get(1) == 20 ? "works" : "does not work") << "\n";
  return reader.get(1) == 20 ? 0 : 1;
}
