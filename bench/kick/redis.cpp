// SPDX-License-Identifier: MIT
//
// Redis: PUBLISH on one channel, answers published on another, over the server's local socket.
#include <hiredis/hiredis.h>
#include <poll.h>

#include <cstring>
#include <stdexcept>

#include "harness/processes.h"
#include "kick/libraries.h"

namespace Bench {

namespace {

struct FreeContext {
  void operator()(redisContext* context) const { redisFree(context); }
};
using Connection = std::unique_ptr<redisContext, FreeContext>;

struct FreeReply {
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Reply = std::unique_ptr<redisReply, FreeReply>;

Reply require(void* reply, const Connection& connection) {
  if (reply == nullptr) throw std::runtime_error(std::string("redis: ") + connection->errstr);
  return Reply(static_cast<redisReply*>(reply));
}

void subscribe(const Connection& connection, const char* channel) {
  require(redisCommand(connection.get(), "SUBSCRIBE %s", channel), connection);
}

void publishOn(const Connection& connection, const char* channel, uint64_t sequence) {
  require(redisCommand(connection.get(), "PUBLISH %s %b", channel, &sequence, sizeof sequence),
          connection);
}

uint64_t nextMessage(const Connection& connection) {
  void* raw = nullptr;
  if (redisGetReply(connection.get(), &raw) != REDIS_OK) raw = nullptr;
  const Reply reply = require(raw, connection);
  uint64_t sequence = 0;
  if (reply->elements == 3 && reply->element[2]->len == sizeof sequence) {
    std::memcpy(&sequence, reply->element[2]->str, sizeof sequence);
  }
  return sequence;
}

class Redis : public MessageScheme {
 public:
  ~Redis() override {
    if (server_ > 0) endChild(server_);
  }

  std::string name() const override { return "Redis"; }

  void prepare() override {
    server_ = startProgram(BENCH_REDIS_SERVER, "redis-server",
                           {"--port", "0", "--unixsocket", socketPath(), "--save", "",
                            "--appendonly", "no", "--maxmemory", "64mb", "--loglevel", "warning",
                            "--logfile", "/dev/null", "--dir", directory_.path()});
  }

  void read() override {
    const Connection publications = connect();
    const Connection answers = connect();
    subscribe(publications, "published");
    for (;;) publishOn(answers, "answers", nextMessage(publications));
  }

 protected:
  void openWriter() override {
    publications_ = connect();
    answers_ = connect();
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
  std::string socketPath() const { return directory_.path() + "/redis"; }

  // The server needs a moment before it listens.
  Connection connect() const {
    Connection connection;
    waitUntil("redis-server", [&] {
      connection.reset(redisConnectUnix(socketPath().c_str()));
      return connection && connection->err == 0;
    });
    return connection;
  }

  ScratchDirectory directory_;
  pid_t server_ = -1;
  Connection publications_;
  Connection answers_;
};

}  // namespace

std::unique_ptr<Scheme> makeRedis() {
  return std::make_unique<Redis>();
}

}  // namespace Bench
