// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <zorbe/kick.h>

#include <iostream>

#include "counter.h"

class Reader : public Zorbe::ReaderKickSm {
 public:
  Reader(Brask::Platform::DebugHandler& log, const Zorbe::RootPath& root,
         Zorbe::Reader::Counters& statistics)
      : ReaderKickSm(log, root, statistics), table_(mapCounter(log, root)) {}

  bool connect() {
    doConnect();
    return connected;
  }
  uint64_t readerSequence() override {  // woken: read the table, return how far
    const uint64_t sequence = table_;
    // A report below the writer's sequence brings the next kick at once. Woken twice for nothing:
    // the writer publishes elsewhere, since somebody has removed or replaced the file.
    idlePasses_ = sequence == sentSequence ? idlePasses_ + 1 : 0;
    if (idlePasses_ > 1) throw std::runtime_error("this is not the writer's table any more");
    std::cout << "the table is at " << sequence << std::endl;
    return sequence;
  }
  void writerConnectionChanged() override {
    enabled = connected;
    if (connected) sendSequence(sentSequence);  // the first report is ours to make
    if (!connected) Brask::Linux::EventLoop::current().stop();
  }
  void writerAcknowledged() override { doConquer(); }  // its kick may be that of a publish
  std::string readerName() const override { return "minimal"; }

 private:
  std::atomic<uint64_t>& table_;
  unsigned idlePasses_ = 0;  // in a row
};

int main() try {
  Brask::Linux::EventLoop loop;
  Brask::Linux::StreamDebugHandler log(std::cerr, 0, {200, 50});
  Zorbe::Reader::Counters counters{};
  Reader reader(log, Zorbe::RootPath(log, "minimal", false), counters);
  if (!reader.connect()) return 1;
  loop.run();
} catch (const std::exception& problem) {
  std::cerr << "minimal-reader: " << problem.what() << std::endl;
  return 1;
}
