// SPDX-License-Identifier: MIT
#include "support/table.h"

namespace Zorbe::Test {

void TableWriter::open() {
  createKickSocket();
  writerSequence = table_.sequence();
  doEnableListen();
}

void TableWriter::publish(uint64_t count) {
  for (; count > 0; --count) {
    table_.sequence() = writerSequence + 1;
    ++writerSequence;
    doKickSleepers();
  }
}

uint64_t TableReader::readerSequence() {
  at_ = table_.sequence();
  if (passed) passed();
  return at_;
}

void TableReader::writerConnectionChanged() {
  enabled = connected;
  if (connected) {
    sendSequence(at_);
  } else if (lost) {
    lost();
  }
}

void Departures::watch() {
  doConnect();
  watching_ = fdControl->fd() >= 0;
  if (!watching_) {
    ++misses;
    return;
  }
  ++connections;
  if (arrived) arrived();
}

void Departures::writerUnlocked() {
  if (watching_) {
    watching_ = false;
    ++departures;
    if (departed) departed();
  }
  watch();
}

}  // namespace Zorbe::Test
