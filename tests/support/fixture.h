// SPDX-License-Identifier: MIT
//
// The fixture that every test of this project derives from.
#pragma once

#include "support/census.h"
#include "support/noncopyable.h"
#include "support/recording_handler.h"
#include "support/test_root.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace Zorbe::Test {

/// Gives each test a handler and a root directory of its own, and fails one that
///   - logged at level 0 without `handler.expectFailures()` or `allowFailures()`,
///   - left a descriptor open, or closed one that was not its own,
///   - armed a fault that never fired.
/// It checks in its destructor, after the members of derived fixtures.
class ZorbeTest : public testing::Test, private NonCopyable {
 protected:
  ZorbeTest();
  ~ZorbeTest() override;

  /// Exactly `count` descriptors stay open on purpose; they are closed afterwards.
  void expectLeakedDescriptors(size_t count) { leaks_ = count; }

  /// Faults that were armed may be left over.
  void allowUnfiredFaults() { unfiredAllowed_ = true; }

  /// $SHMEM_ROOT, and paths below it.
  const std::string& rootPath() const { return root_->path(); }
  std::string inRoot(const std::string& name) const { return *root_ / name; }

 private:
  void checkFaults() const;
  void checkDescriptors() const;

  Census before_;
  std::unique_ptr<TestRoot> root_;
  size_t leaks_ = 0;
  bool unfiredAllowed_ = false;

 protected:
  RecordingHandler handler;
};

}  // namespace Zorbe::Test
