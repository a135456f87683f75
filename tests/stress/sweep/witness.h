// SPDX-License-Identifier: MIT
//
// What a client of the library sees of one life: messages and exceptions.
#pragma once

#include <brask/platform.h>

#include <exception>
#include <string>
#include <vector>

#include "support/recording_handler.h"

namespace Zorbe::Test::Sweep {

class Witness : public Brask::Platform::DebugHandler {
 public:
  bool isEnabled(int /*level*/) override { return true; }
  void emit(std::ostringstream& message, int level) override;

  /// Takes a step of a client that survives its errors: what it throws is noted. False
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

  /// As a message of level 9.
  void note(const std::string& text);

  /// The texts of the exceptions of the library and of the system errors of the loop.
  const std::vector<std::string>& thrown() const { return thrown_; }
  const std::vector<Message>& messages() const { return messages_; }
  unsigned badAllocs() const { return badAllocs_; }

  /// Exceptions that nothing may throw.
  const std::vector<std::string>& strangers() const { return strangers_; }

  /// The descriptors that the exceptions so far have left open, as documented.
  unsigned documentedLeaks() const;

 private:
  void note(const std::exception_ptr& exception);

  std::vector<Message> messages_;
  std::vector<std::string> thrown_;
  std::vector<std::string> strangers_;
  unsigned badAllocs_ = 0;
};

}  // namespace Zorbe::Test::Sweep
