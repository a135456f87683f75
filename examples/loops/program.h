// SPDX-License-Identifier: MIT
//
// What the programs of this folder do, in the bundled loop:
//
//     loops-uv read TABLE COUNT      prints COUNT changes
//     loops-uv write TABLE COUNT     puts COUNT records, one at each tick
//
// Another loop drives it: it polls fd() for reading, level-triggered, and calls turn(); a timer of
// its own calls tick(). When either returns false, the other loop ends, and end() follows.
#pragma once

#include <brask/linux/event_loop.h>
#include <zorbe/table/in_loop.h>

#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "copy.h"
#include "quote.h"

class Role {
 public:
  explicit Role(unsigned long count) : left(count) {}
  virtual ~Role() = default;
  virtual void tick() = 0;

  unsigned long left;
};

class Reading : public Role {
 public:
  Reading(const std::string& table, unsigned long count) : Role(count), reader_(table) {
    reader_.onReady([this] { deliver(); });
  }

  // Prints the summary when it has changed.
  void tick() override {
    static const char* const kStates[] = {"waiting", "connected", "orphaned", "refused"};
    const std::string summary = std::to_string(copy_.records.size()) + " records, " +
                                kStates[static_cast<size_t>(reader_.state())];
    if (summary != printed_) std::cout << summary << std::endl;
    printed_ = summary;
  }

 private:
  // One change a turn, so that the other loop dispatches its sources in between: what is left
  // keeps the descriptor readable.
  void deliver() {
    const auto change = reader_.next();
    if (!change) return;
    copy_.apply(*change);
    if (change->kind == Zorbe::Table::Kind::put) {
      std::cout << "put " << change->key << ' ' << change->value.bid << std::endl;
    } else if (change->kind == Zorbe::Table::Kind::erased) {
      std::cout << "erased " << change->key << std::endl;
    } else {
      return;
    }
    --left;
  }

  Zorbe::Table::LoopReader<Symbol, Quote> reader_;
  Copy<Symbol, Quote> copy_;
  std::string printed_;
};

class Writing : public Role {
 public:
  Writing(const std::string& table, unsigned long count) : Role(count), writer_(table) {}

  // The bundled loop publishes the record, a millisecond later.
  void tick() override {
    const size_t number = writer_.size();
    writer_.put(std::to_string(number), {double(number), double(number) + 0.5});
    --left;
  }

 private:
  Zorbe::Table::LoopWriter<Symbol, Quote> writer_;
};

class Program {
 public:
  static constexpr int kTickMilliseconds = 10;

  Program(int count, char** words) {
    const std::string role = count == 4 ? words[1] : "";
    if (role == "read") role_ = std::make_unique<Reading>(words[2], std::stoul(words[3]));
    if (role == "write") role_ = std::make_unique<Writing>(words[2], std::stoul(words[3]));
    if (!role_) throw std::invalid_argument("arguments: read|write TABLE COUNT");
  }

  int fd() const noexcept { return loop_.fd(); }

  // One turn for each time that the descriptor is readable: it stays readable as long as there is
  // something to do.
  bool turn() noexcept {
    return run([this] { loop_.turn(0); });
  }

  bool tick() noexcept {
    return run([this] { role_->tick(); });
  }

  // Called instead of them when the other loop reports an error.
  bool fail(const std::string& reason) noexcept {
    return run([&] { throw std::runtime_error("the other loop fails: " + reason); });
  }

  // Throws what turn(), tick() or fail() has caught.
  void end() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  // An exception must not leave a function that a library in C calls.
  template <class Action>
  bool run(Action action) noexcept {
    try {
      if (goesOn()) action();
    } catch (...) {
      failure_ = std::current_exception();
    }
    return goesOn();
  }

  bool goesOn() const { return role_->left > 0 && !failure_; }

  Brask::Linux::EventLoop loop_;  // outlives what runs in it
  std::unique_ptr<Role> role_;
  std::exception_ptr failure_;
};
