// SPDX-License-Identifier: MIT
//
// What the parts of the broken platform share: it is the bundled one, but for the one promise
// that it was started to break.
#pragma once

#include <brask/platform.h>

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

namespace Zorbe::Conformance::Broken {

/// Whether this promise, named by its test, is the one to break.
bool breaks(std::string_view promise);

/// The function of the bundled platform that has this symbol.
void* bundledFunction(const char* symbol);

template <class Function>
Function* bundled(const char* symbol) {
  return reinterpret_cast<Function*>(bundledFunction(symbol));
}

Brask::Platform::FdControl* bundledFd(Brask::Platform::FdEventHandler* handler);
Brask::Platform::TimerControl* bundledTimer(Brask::Platform::TimeoutHandler* handler);
Brask::Platform::InotifyControl* bundledInotify(Brask::Platform::InotifyHandler* handler);

/// Calls once, in a later turn.
class Later : public Brask::Platform::TimeoutHandler {
 public:
  explicit Later(std::function<void()> action)
      : action_(std::move(action)), control_(bundledTimer(this)) {}
  void start() { control_->start(0.0); }
  void timeout() override { action_(); }

 private:
  std::function<void()> action_;
  std::unique_ptr<Brask::Platform::TimerControl> control_;
};

/// What a control of the broken platform has beside the bundled control that it stands for. Held
/// by the control and, while it calls the handler, by the call: a handler may delete the control.
class Link : public std::enable_shared_from_this<Link> {
 public:
  virtual ~Link() = default;

  /// The control is deleted: its callbacks end, unless that is the promise to break.
  void end();

 protected:
  /// Inside of a handler, of this control or of any.
  bool isCalling() const { return calling_ > 0; }
  static bool isAnyCalling() { return anyCalling > 0; }

  /// Calls the handler.
  void call(const std::function<void()>& handler);

  /// Deletes the bundled control.
  virtual void drop() = 0;

 private:
  bool keepsCalling() const;

  static int anyCalling;
  int calling_ = 0;
};

/// A control whose deletion ends its link.
template <class Contract, class Kind>
class Control : public Contract {
 public:
  explicit Control(std::shared_ptr<Kind> link) : link_(std::move(link)) {}
  ~Control() override { link_->end(); }
  Control(const Control&) = delete;
  Control& operator=(const Control&) = delete;

 protected:
  const std::shared_ptr<Kind> link_;
};

}  // namespace Zorbe::Conformance::Broken
