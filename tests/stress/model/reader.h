// SPDX-License-Identifier: MIT
//
// The readers of the model. Their loads have answers of the explorer's choice; everything that
// they find is judged by the truth.
#pragma once

#include "explorer.h"
#include "protocol.h"
#include "truth.h"

namespace Zorbe::Model {

class Reader {
 public:
  Reader(Explorer& explorer, const Protocol& protocol, const Truth& truth)
      : x_(explorer), m_(explorer.memory()), p_(protocol), truth_(truth) {}

  /// Looks a key up; `found` is its record, if there was one.
  bool get(Value key, Record& found);
  /// Reads a slot that once held the key.
  bool readHandle(Value slot, Value key, Record& found);

  /// Maps the index and the capacity that were there when `length` stores had been made.
  void mapAsOf(int length);

  /// Reads a slot. `context` and what `remember` was given is all that the caller remembers.
  Record read(Value slot, uint64_t context);
  /// The record of a slot that an index or a log leads to.
  Record readChecked(Value slot, uint64_t context);

  /// What the reader does next depends on `state`, what it has mapped, and its view alone.
  void remember(uint64_t state);

 protected:
  Value load(Location location, Order order = Order::kAcquire) { return x_.load(location, order); }
  Order unless(Mistake mistake) const {
    return p_.has(mistake) ? Order::kRelaxed : Order::kAcquire;
  }

  Explorer& x_;
  const Memory& m_;
  const Protocol& p_;
  const Truth& truth_;
  Value capacity_ = 0;

 private:
  enum class Attempt { kAccepted, kRetry };
  Attempt readEven(Value slot, Value guard, Record& record);
  Attempt readImage(Value slot, Value guard, Record& record);
  bool probe(Value key, Record& found);
  bool mapNewerIndex();

  uint64_t remembered_ = 0;
  Value index_ = 0;  // the file that it has mapped
};

/// The reader takes for corruption what a correct writer has left.
[[noreturn]] void corrupt(const std::string& what);

}  // namespace Zorbe::Model
