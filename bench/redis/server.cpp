// SPDX-License-Identifier: MIT
#include "redis/server.h"

#include <stdexcept>

namespace Bench {

namespace {

struct Words {
  explicit Words(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
      texts.push_back(word.data());
      lengths.push_back(word.size());
    }
  }

  int count() const { return static_cast<int>(texts.size()); }

  std::vector<const char*> texts;
  std::vector<size_t> lengths;
};

}  // namespace

RedisReply require(void* reply, const RedisConnection& connection) {
  if (reply == nullptr) throw std::runtime_error(std::string("redis: ") + connection->errstr);
  RedisReply owned(static_cast<redisReply*>(reply));
  if (owned->type == REDIS_REPLY_ERROR)
    throw std::runtime_error(std::string("redis: ") + owned->str);
  return owned;
}

RedisReply nextReply(const RedisConnection& connection) {
  void* reply = nullptr;
  if (redisGetReply(connection.get(), &reply) != REDIS_OK) reply = nullptr;
  return require(reply, connection);
}

RedisReply ask(const RedisConnection& connection, const std::vector<std::string>& words) {
  send(connection, words);
  return nextReply(connection);
}

void send(const RedisConnection& connection, const std::vector<std::string>& words) {
  Words list(words);
  if (redisAppendCommandArgv(connection.get(), list.count(), list.texts.data(),
                             list.lengths.data()) != REDIS_OK) {
    throw std::runtime_error(std::string("redis: ") + connection->errstr);
  }
}

RedisConnection connectTo(const std::string& socketPath) {
  RedisConnection connection;
  waitUntil("redis-server", [&] {
    connection.reset(redisConnectUnix(socketPath.c_str()));
    return connection && connection->err == 0;
  });
  return connection;
}

RedisServer::~RedisServer() {
  kill();
}

void RedisServer::start() {
  pid_ =
      startProgram(BENCH_REDIS_SERVER, "redis-server",
                   {"--port", "0", "--unixsocket", socketPath(), "--save", "", "--appendonly", "no",
                    "--loglevel", "warning", "--logfile", "/dev/null", "--dir", directory_.path()});
}

void RedisServer::kill() {
  if (pid_ > 0) endChild(pid_);
  pid_ = -1;
}

}  // namespace Bench
