// SPDX-License-Identifier: MIT
#pragma once

#include "fault/fault.h"
#include "support/fake_platform_fixture.h"

#include <zorbe/exceptions.h>
#include <zorbe/mounter.h>

#include <functional>
#include <string>

namespace Zorbe::Test {

/// A client that records its callbacks.
class Client : public MounterBase {
 public:
  explicit Client(FakePlatform& platform) : platform_(platform) {}

  void rootChanged(const std::string& what) override {
    platform_.note("rootChanged " + what);
    if (onChange) onChange();
  }

  std::function<void()> onChange;

 private:
  FakePlatform& platform_;
};

/// A child of a ParentMounterSm that records its callbacks.
class Child : public Brask::Platform::InotifyHandler {
 public:
  explicit Child(FakePlatform& platform) : platform_(platform) {}

  void inotifyError(const std::string& what) override { platform_.note("error " + what); }
  void inotifyDeleted() override {
    platform_.note("deleted");
    if (onDeleted) onDeleted();
  }
  void inotifyChanged(const std::string& what) override { platform_.note("changed " + what); }

  std::function<void()> onDeleted;

 private:
  FakePlatform& platform_;
};

/// The watchers with what derived classes see of them.
class Mounter : public MounterSm {
 public:
  using MounterSm::MounterSm;
  bool isWatching() const { return watching; }
  bool& watchingSlot() { return watching; }
  const RootPath& root() const { return rootPath; }
  const std::string& tableName() const { return name; }
};

class Parent : public ParentMounterSm {
 public:
  using ParentMounterSm::ParentMounterSm;
  bool isWatching() const { return watching; }
  const std::string& directory() const { return parentPath; }
  const std::string& entry() const { return childName; }
};

}  // namespace Zorbe::Test
