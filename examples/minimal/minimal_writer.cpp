// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/exceptions.h>
#include <zorbe/kick.h>

#include <iostream>

#include "counter.h"

class Writer : public Zorbe::WriterKickSm {
 public:
  Writer(Brask::Platform::DebugHandler& log, const Zorbe::RootPath& root)
      : WriterKickSm(log, root, false) {
    createKickSocket();  // become the writer, or throw
    table_ = &mapCounter(log, root);
    writerSequence = *table_;  // go on where an earlier writer has stopped
    doEnableListen();
  }
  void publish() {
    *table_ = ++writerSequence;  // first the table, then the kick
    doKickSleepers();
  }
  int expectReconnects() override { return 0; }
  void readersChanged() override { std::cout << readers.size() << " readers" << std::endl; }

 private:
  std::atomic<uint64_t>* table_ = nullptr;
};

int main() try {
  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler log(std::cerr, 0, {200, 50});
  Writer writer(log, Zorbe::RootPath(log, "minimal", true));
  Every second(1.0, [&] { writer.publish(); });
  loop.run();
} catch (const Zorbe::DuplicateWriterException& refusal) {
  std::cerr << "minimal-writer: the table has a writer, process " << refusal.pid << std::endl;
  return 1;
} catch (const std::exception& problem) {
  std::cerr << "minimal-writer: " << problem.what() << std::endl;
  return 1;
}
