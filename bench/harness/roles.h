// SPDX-License-Identifier: MIT
//
// The smallest writer and reader of a table: all that they share is the sequence up to which
// the writer has published.
#pragma once

#include <brask/platform.h>
#include <zorbe/counters.h>
#include <zorbe/kick.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Bench {

using Published = std::atomic<uint64_t>;

/// Enables no level.
class SilentHandler : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int) override { return false; }
  void emit(std::ostringstream&, int) override {}
};

class Writer : public Zorbe::WriterKickSm {
 public:
  Writer(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
         Published& sequence)
      : WriterKickSm(debugHandler, root, false), published_(sequence) {}

  void open() {
    createKickSocket();
    doEnableListen();
  }

  void publish() {
    published_.store(++writerSequence, std::memory_order_release);
    doKickSleepers();
  }

  size_t connected() const { return readers.size(); }
  size_t sleeping() const { return sleepingReaders.size(); }

  int expectReconnects() override { return 0; }
  void readersChanged() override {}

 private:
  Published& published_;
};

class Reader : public Zorbe::ReaderKickSm {
 public:
  Reader(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
         const Published& sequence)
      : ReaderKickSm(debugHandler, root, counters_), published_(sequence) {
    enabled = true;
  }

  bool isConnected() const { return connected; }

  uint64_t readerSequence() override { return published_.load(std::memory_order_acquire); }
  void writerConnectionChanged() override {
    if (connected) sendSequence(readerSequence());
  }
  void writerAcknowledged() override { doConquer(); }
  std::string readerName() const override { return "bench"; }

 private:
  Zorbe::Reader::Counters counters_{};
  const Published& published_;
};

}  // namespace Bench
