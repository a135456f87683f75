// SPDX-License-Identifier: MIT
#include "server/events.h"

#include <hiredis/async.h>
#include <sys/epoll.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace Zorbe::Relay {

namespace {

int makeSet() {
  const int set = ::epoll_create1(EPOLL_CLOEXEC);
  const int error = errno;
  if (set < 0) throw std::system_error(error, std::generic_category(), "epoll_create1()");
  return set;
}

}  // namespace

Events::Events(redisAsyncContext& context)
    : context_(context), set_(makeSet()), control_(Brask::Platform::getFdControl(this)) {
  control_->watch(set_.get());
}

Events::~Events() {
  turn_->isDestroyed = true;
}

void Events::attach(redisAsyncContext& context) {
  std::unique_ptr<Events> events(new Events(context));
  context.ev.addRead = addRead;
  context.ev.delRead = removeRead;
  context.ev.addWrite = addWrite;
  context.ev.delWrite = removeWrite;
  context.ev.cleanup = cleanUp;
  context.ev.data = events.release();
}

void Events::fdEvent(int) {
  epoll_event event{};
  const int count = ::epoll_wait(set_.get(), &event, 1, 0);
  if (count <= 0) return;  // the loop calls again
  const std::shared_ptr<Turn> turn = turn_;
  turn->isRunning = true;
  // The client library learns of errors by reading and writing.
  const bool isBroken = (event.events & (EPOLLERR | EPOLLHUP)) != 0;
  if (isBroken || (event.events & EPOLLIN) != 0) redisAsyncHandleRead(&context_);
  const bool canWrite = isBroken || (event.events & EPOLLOUT) != 0;
  if (!turn->isDestroyed && canWrite) redisAsyncHandleWrite(&context_);
  turn->isRunning = false;
  if (turn->exception) std::rethrow_exception(std::exchange(turn->exception, nullptr));
}

void Events::keepException(redisAsyncContext& context) {
  const auto* const events = static_cast<Events*>(context.ev.data);
  if (events == nullptr || !events->turn_->isRunning) return;
  events->turn_->exception = std::current_exception();
}

// A descriptor that the kernel does not take any more is a connection that reading will end.
void Events::want(uint32_t events) {
  if (events == wanted_ && isAdded_) return;
  epoll_event event{};
  event.events = wanted_ = events;
  const int operation = isAdded_ ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  if (::epoll_ctl(set_.get(), operation, context_.c.fd, &event) == 0) isAdded_ = true;
}

void Events::addRead(void* self) {
  auto& events = *static_cast<Events*>(self);
  events.want(events.wanted_ | EPOLLIN);
}

void Events::removeRead(void* self) {
  auto& events = *static_cast<Events*>(self);
  events.want(events.wanted_ & ~static_cast<uint32_t>(EPOLLIN));
}

// An error is met once more when the event comes, and ends the connection then.
bool Events::writeAtOnce() {
  redisContext& connection = context_.c;
  int isDone = 0;
  return (connection.flags & REDIS_CONNECTED) != 0 &&
         redisBufferWrite(&connection, &isDone) == REDIS_OK && isDone != 0;
}

void Events::addWrite(void* self) {
  auto& events = *static_cast<Events*>(self);
  if (!events.writeAtOnce()) events.want(events.wanted_ | EPOLLOUT);
}

void Events::removeWrite(void* self) {
  auto& events = *static_cast<Events*>(self);
  events.want(events.wanted_ & ~static_cast<uint32_t>(EPOLLOUT));
}

void Events::cleanUp(void* self) {
  delete static_cast<Events*>(self);
}

}  // namespace Zorbe::Relay
