// SPDX-License-Identifier: MIT
#include <event2/event.h>

#include <stdexcept>
#include <vector>

#include "loop/driver.h"

namespace Bench {

namespace {

void require(bool good) {
  if (!good) throw std::runtime_error("libevent has failed");
}

struct FreeEvent {
  void operator()(event* each) const { event_free(each); }
};
using Event = std::unique_ptr<event, FreeEvent>;

struct FreeBase {
  void operator()(event_base* base) const { event_base_free(base); }
};

class Libevent : public LoopDriver {
 public:
  std::string name() const override { return "libevent"; }

  void watch(int fd) override {
    const auto count = [](evutil_socket_t, short, void* self) {
      ++static_cast<Libevent*>(self)->events_;
    };
    watched_.emplace_back(event_new(base_.get(), fd, EV_READ | EV_PERSIST, count, this));
    require(watched_.back() && event_add(watched_.back().get(), nullptr) == 0);
  }

  void dispatch(int count) override {
    for (const int end = events_ + count; events_ < end;) poll();
  }

  void rearm(int count) override {
    for (int each = 0; each < count; ++each) {
      const timeval delay{1000 + each % 7, 0};
      require(event_add(rearmed_.get(), &delay) == 0);
    }
    require(event_del(rearmed_.get()) == 0);
  }

  void turn(int count) override {
    left_ = count;
    again();
    while (left_ > 0) poll();
  }

 private:
  void poll() { require(event_base_loop(base_.get(), EVLOOP_ONCE | EVLOOP_NONBLOCK) >= 0); }

  void again() {
    const timeval none{0, 0};
    require(event_add(tick_.get(), &none) == 0);
  }

  static void ticked(evutil_socket_t, short, void* self) {
    Libevent* const own = static_cast<Libevent*>(self);
    if (--own->left_ > 0) own->again();
  }

  std::unique_ptr<event_base, FreeBase> base_{event_base_new()};
  Event tick_{event_new(base_.get(), -1, 0, ticked, this)};
  Event rearmed_{event_new(base_.get(), -1, 0, ticked, this)};
  std::vector<Event> watched_;
  int events_ = 0;
  int left_ = 0;
};

}  // namespace

std::unique_ptr<LoopDriver> makeLibevent() {
  return std::make_unique<Libevent>();
}

}  // namespace Bench
