// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <zorbe/table/c_interface.h>
#include <zorbe/table/options.h>

#include <string>

namespace Zorbe::Table {

/// Passes messages to a program's function.
class CallbackLog : public Brask::Platform::DebugHandler {
 public:
  explicit CallbackLog(const zorbe_options& options)
      : function_(options.log), context_(options.log_context), level_(options.log_level) {}

  bool isEnabled(int level) override { return level <= level_; }
  void emit(std::ostringstream& message, int level) override {
    function_(context_, level, message.str().c_str());
  }

 private:
  void (*function_)(void*, int, const char*);
  void* context_;
  int level_;
};

/// All options of this version: those that the program's version does not have are zero. Throws
/// Error (usage): options that this version does not know.
zorbe_options completeOptions(const std::string& table, const zorbe_options* options);

/// The same in C++, without a log.
Options optionsOf(const zorbe_options& options);

}  // namespace Zorbe::Table
