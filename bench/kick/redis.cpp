// SPDX-License-Identifier: MIT
//
// Redis: PUBLISH on one channel, answers published on another, over the server's local socket.
#include <poll.h>

#include <cstring>

#include "harness/processes.h"
#include "kick/libraries.h"
#include "redis/server.h"

namespace Bench {

namespace {

void subscribe(const RedisConnection& connection, const char* channel) {
  require(redisCommand(connection.get(), "SUBSCRIBE %s", channel), connection);
}

void publishOn(const RedisConnection& connection, const char* channel, uint64_t sequence) {
  require(redisCommand(connection.get(), "PUBLISH %s %b", channel, &sequence, sizeof sequence),
          connection);
}

uint64_t nextMessage(const RedisConnection& connection) {
  const RedisReply reply = nextReply(connection);
  uint64_t sequence = 0;
  if (reply->elements == 3 && reply->element[2]->len == sizeof sequence) {
    std::memcpy(&sequence, reply->element[2]->str, sizeof sequence);
  }
  return sequence;
}

class Redis : public MessageScheme {
 public:
  std::string name() const override { return "Redis"; }

  void prepare() override { server_.start(); }

  void read() override {
    const RedisConnection publications = server_.connect();
    const RedisConnection answers = server_.connect();
    subscribe(publications, "published");
    for (;;) publishOn(answers, "answers", nextMessage(publications));
  }

 protected:
  void openWriter() override {
    publications_ = server_.connect();
    answers_ = server_.connect();
    subscribe(answers_, "answers");
  }

  void publish(uint64_t sequence) override { publishOn(publications_, "published", sequence); }

  bool answer(uint64_t& sequence, int milliseconds) override {
    if (milliseconds >= 0) {
      pollfd state{answers_->fd, POLLIN, 0};
      if (check(::poll(&state, 1, milliseconds), "poll()") == 0) return false;
    }
    sequence = nextMessage(answers_);
    return true;
  }

 private:
  RedisServer server_;
  RedisConnection publications_;
  RedisConnection answers_;
};

}  // namespace

std::unique_ptr<Scheme> makeRedis() {
  return std::make_unique<Redis>();
}

}  // namespace Bench
