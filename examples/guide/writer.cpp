// SPDX-License-Identifier: MIT
//
// guide-writer [--new]: counts up, ten times a second. Continues the table that is there; --new
// begins a new incarnation.
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/exceptions.h>
#include <zorbe/kick.h>

#include <iostream>
#include <optional>
#include <string>

#include "number_table.h"
#include "timer.h"

namespace {

class Writer : public Zorbe::WriterKickSm {
 public:
  Writer(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root, bool startNew)
      : WriterKickSm(debugHandler, root, false) {
    createKickSocket();  // 1. the lock: from here on this process may change the files
    table_ = NumberTable::openForWriting(debugHandler, root, startNew);
    writerSequence = table_->number();  // 2. what readers have reported so far is at most this
    doEnableListen();                   // 3. readers may connect
    std::cout << "writing incarnation " << table_->id() << std::endl;
  }

  void publish() {
    table_->setNumber(writerSequence + 1);  // 4. first the table, then the sequence, then the kick
    ++writerSequence;
    doKickSleepers();
  }

  int expectReconnects() override { return 0; }
  void readersChanged() override {}

 private:
  std::optional<NumberTable> table_;
};

}  // namespace

int main(int argc, char** argv) try {
  const bool startNew = argc > 1 && std::string(argv[1]) == "--new";
  Brask::Linux::StreamDebugHandler log(std::cerr, 0, {200, 50});
  Brask::Linux::EventLoop loop;
  Writer writer(log, Zorbe::RootPath(log, "guide", true), startNew);
  Timer tick([&] {
    writer.publish();
    tick.start(0.1);
  });
  tick.start(0.0);
  loop.run();
} catch (const Zorbe::DuplicateWriterException& refusal) {
  std::cerr << "guide-writer: the table has a writer, process " << refusal.pid << std::endl;
  return 1;
} catch (const std::exception& problem) {
  std::cerr << "guide-writer: " << problem.what() << std::endl;
  return 1;
}
