// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/table/core.h>

#include <memory>
#include <string>

namespace Zorbe::Table {

/// Passes messages on unless it is muted.
class MutableHandler : public Brask::Platform::DebugHandler {
 public:
  explicit MutableHandler(Brask::Platform::DebugHandler& target) : target_(target) {}

  void mute(bool muted) { muted_ = muted; }
  bool isEnabled(int level) override { return !muted_ && target_.isEnabled(level); }
  void emit(std::ostringstream& message, int level) override { target_.emit(message, level); }

 private:
  Brask::Platform::DebugHandler& target_;
  bool muted_ = false;
};

/// Becomes the writer, waiting for another one to end for Options::waitForLock seconds. `log` is
/// the options' handler: attempts that are repeated are not logged.
std::unique_ptr<WriterCore> becomeWriter(const std::string& name, const Options& options,
                                         const Schema& schema, MutableHandler& log);

}  // namespace Zorbe::Table
