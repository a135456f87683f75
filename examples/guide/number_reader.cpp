// SPDX-License-Identifier: MIT
#include "number_reader.h"

#include <zorbe/exceptions.h>

#include <iostream>
#include <utility>

NumberReader::NumberReader(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
                           Zorbe::Reader::Counters& readerCounters, NumberTable table,
                           std::function<void()> lookAgain)
    : ReaderKickSm(debugHandler, root, readerCounters),
      table_(std::move(table)),
      lookAgain_(std::move(lookAgain)) {}

// The connection is up, or was lost: `connected` says which.
void NumberReader::writerConnectionChanged() {
  enabled = connected;  // from now on kicks are read
  idlePasses_ = 0;
  if (connected) {
    sendSequence(sentSequence);  // the first report is the client's to send
  } else {
    lookAgain_();
  }
}

// The kick that acknowledges may be that of a publication, too.
void NumberReader::writerAcknowledged() {
  doConquer();
}

// A pass: reads the table, and returns the sequence up to which it was read.
uint64_t NumberReader::readerSequence() {
  const uint64_t number = table_.number();
  idlePasses_ = number == sentSequence ? idlePasses_ + 1 : 0;
  if (number < sentSequence || idlePasses_ > 1) {
    usable_ = false;
    lookAgain_();  // the library reports nothing now, so no kick follows
    throw Zorbe::CorruptionDetectedException("this is not the writer's table");
  }
  std::cout << "at " << number << std::endl;
  return number;
}
