// SPDX-License-Identifier: MIT
//
// Records what a client of the library sees of one scenario: messages and exceptions.
#pragma once

#include <brask/platform.h>

#include <exception>
#include <string>
#include <vector>

#include "support/recording_handler.h"

namespace Zorbe::Test::Sweep {

class EventRecorder : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int /*level*/) override { return true; }
  void emit(std::ostringstream& message, int level) override;

  /// Runs a step of a client that continues after its errors, and records what it throws. False
  /// when it threw.
  template <typename Step>
  bool attempt(Step step) {
    try {
      step();
      return true;
    } catch (...) {
      note(std::current_exception());
      return false;
    }
  }

  /// Records a message of level 9.
  void note(const std::string& text);

  /// The texts of the exceptions of the library and of the system errors of the loop.
  const std::vector<std::string>& thrown() const { return thrown_; }
  const std::vector<Message>& messages() const { return messages_; }
  unsigned badAllocs() const { return badAllocs_; }

  /// The other exceptions, which must not occur.
  const std::vector<std::string>& unexpectedExceptions() const { return unexpectedExceptions_; }

  /// The descriptors that the exceptions so far have left open, as documented.
  unsigned documentedLeaks() const;

 private:
  void note(const std::exception_ptr& exception);

  std::vector<Message> messages_;
  std::vector<std::string> thrown_;
  std::vector<std::string> unexpectedExceptions_;
  unsigned badAllocs_ = 0;
};

}  // namespace Zorbe::Test::Sweep
