// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>

#include <cstdint>
#include <exception>
#include <memory>

#include "foundation/unique_fd.h"

struct redisAsyncContext;

namespace Zorbe::Relay {

/// Drives the client library from the event loop. A control of the loop reports readability only:
/// the connection's descriptor is in an epoll(7) set of its own, and that is watched. Commands are
/// written when they are sent; the set reports when the rest can be, if not everything was.
class Events : public Brask::Platform::FdEventHandler {
 public:
  /// Installs itself in `context`, which then owns it. Throws std::system_error.
  static void attach(redisAsyncContext& context);

  ~Events() override;

  /// Throws what a callback has thrown.
  void fdEvent(int fd) override;

  /// To be called in a catch block of a callback, which must not throw through the client library.
  static void keepException(redisAsyncContext& context);

 private:
  // What has to be known after calling the client library.
  struct Turn {
    bool isRunning = false;
    bool isDestroyed = false;
    std::exception_ptr exception;
  };

  explicit Events(redisAsyncContext& context);

  static void addRead(void* self);
  static void removeRead(void* self);
  static void addWrite(void* self);
  static void removeWrite(void* self);
  static void cleanUp(void* self);

  void want(uint32_t events);
  bool writeAtOnce();

  redisAsyncContext& context_;
  UniqueFd set_;
  uint32_t wanted_ = 0;
  bool isAdded_ = false;
  std::shared_ptr<Turn> turn_ = std::make_shared<Turn>();  // a turn outlives this
  std::unique_ptr<Brask::Platform::FdControl> control_;
};

}  // namespace Zorbe::Relay
