// SPDX-License-Identifier: MIT
#include "unit/relay/redis_server.h"

#include <hiredis/hiredis.h>

namespace Zorbe::Test {

namespace {

struct Free {
  void operator()(redisContext* context) const { redisFree(context); }
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};

std::string print(const redisReply& reply) {
  if (reply.type == REDIS_REPLY_INTEGER) return std::to_string(reply.integer);
  if (reply.type == REDIS_REPLY_NIL) return "nil";
  std::string text;
  for (size_t i = 0; reply.type == REDIS_REPLY_ARRAY && i < reply.elements; ++i) {
    text += print(*reply.element[i]) + " ";
  }
  return reply.str != nullptr ? std::string(reply.str, reply.len) : text;
}

}  // namespace

std::string askServer(const std::string& socket, const std::vector<std::string>& words) {
  const std::unique_ptr<redisContext, Free> context(redisConnectUnix(socket.c_str()));
  std::vector<const char*> texts;
  std::vector<size_t> lengths;
  for (const std::string& word : words) {
    texts.push_back(word.data());
    lengths.push_back(word.size());
  }
  const std::unique_ptr<redisReply, Free> reply(static_cast<redisReply*>(redisCommandArgv(
      context.get(), static_cast<int>(words.size()), texts.data(), lengths.data())));
  return reply ? print(*reply) : context->errstr;
}

RedisServer::RedisServer(const std::string& directory, std::vector<std::string> options,
                         std::vector<std::string> launcher)
    : directory_(directory),
      socket_(directory + "/socket"),
      options_(std::move(options)),
      launcher_(std::move(launcher)) {
  start();
}

void RedisServer::start() {
  std::vector<std::string> words = launcher_;
  words.insert(words.end(),
               {ZORBE_REDIS_SERVER, "--port", "0", "--unixsocket", socket_, "--dir", directory_,
                "--save", "", "--appendonly", "no", "--maxmemory", "64mb"});
  words.insert(words.end(), options_.begin(), options_.end());
  process_ = std::make_unique<ChildProcess>(words);
  while (process_->receive().find("eady to accept connections") == std::string::npos) continue;
}

}  // namespace Zorbe::Test
