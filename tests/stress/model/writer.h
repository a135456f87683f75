// SPDX-License-Identifier: MIT
//
// The writer of the model: every store, in order. It runs alone, so it is ordinary code; what it
// has stored when it is killed is cut off afterwards (Memory::killedAt).
#pragma once

#include <string>

#include "protocol.h"

namespace Zorbe::Model {

class Writer {
 public:
  Writer(Memory& memory, const Protocol& protocol) : m_(memory), p_(protocol) {}

  /// Makes the table.
  void format();
  /// Continues what a killed writer left.
  void takeOver();

  /// Runs one step of a script: "pK" put, "eK" erase, "!" publish, "R" rebuild the index,
  /// "L" enlarge the log.
  void run(const std::string& step, size_t number);

 private:
  void put(Value key, Value value);
  void erase(Value key);
  void publish();
  void rebuild();
  void enlargeLog();
  void grow();

  // writer_slots.cpp
  Record record(Value slot) const;
  Value find(Value key) const;
  void storeSlot(Value slot, const Record& record);
  void storeImage(Value slot, Value guard);
  void logChange(Value sequence, Value slot);
  void insert(Value key, Value slot);
  void storeTombstone(Value slot);
  bool roomInIndex(bool reuse) const;
  Value freeSlot(Value sequence) const;
  void storeNew(Value slot, const Record& record);

  // takeover.cpp
  void undo();
  void takeGeneration();
  void keepFinished();
  bool indexed(Value slot) const;
  void checkSlots() const;

  void store(Location location, Value value, Mistake relaxed = Mistake::kNone);
  Value load(Location location) const { return m_.latest(location); }
  const File& index() const { return m_.file(load(At::kIndexName) - 1); }
  const File& log() const;

  Memory& m_;
  const Protocol& p_;
  Value appended_ = 0;
};

}  // namespace Zorbe::Model
