// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/kick.h>

#include <functional>
#include <string>

#include "number_table.h"

/// The reader of one incarnation. Its owner replaces it for the next one.
class NumberReader : public Zorbe::ReaderKickSm {
 public:
  /// `lookAgain` asks the owner to compare this reader with the table on a later turn of the
  /// loop. It is called from inside this object's callbacks, and must not destroy it.
  NumberReader(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
               Zorbe::Reader::Counters& readerCounters, NumberTable table,
               std::function<void()> lookAgain);

  bool isConnected() const { return connected; }

  /// Whether the table with this id is the one that this object reads.
  bool reads(unsigned id) const { return usable_ && table_.id() == id; }

  uint64_t readerSequence() override;
  void writerConnectionChanged() override;
  void writerAcknowledged() override;
  std::string readerName() const override { return "guide"; }

 private:
  NumberTable table_;
  std::function<void()> lookAgain_;
  bool usable_ = true;
  unsigned idlePasses_ = 0;  // in a row
};
