// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/mounter.h>

#include <memory>
#include <string>

#include "number_reader.h"
#include "timer.h"

/// Follows the table through restarts of the writer, new incarnations and a removed directory.
class Follower : public Zorbe::MounterBase {
 public:
  /// Creates the root directory and watches it. The handler outlives this object. Throws what
  /// MounterSm throws.
  explicit Follower(Brask::Platform::DebugHandler& debugHandler);

  void rootChanged(const std::string& what) override;

 private:
  void look();
  void openTable();

  Brask::Platform::DebugHandler& handler_;
  Zorbe::RootPath root_;
  Zorbe::Reader::Counters counters_{};
  Timer timer_{[this] { look(); }};
  std::unique_ptr<NumberReader> reader_;  // of the present incarnation; null before the first
  Zorbe::MounterSm mounter_;
};
