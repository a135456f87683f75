// SPDX-License-Identifier: MIT
#include "stress/relay/server.h"

#include <hiredis/hiredis.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr std::chrono::seconds kStartTimeout{20};
constexpr std::chrono::milliseconds kBetweenAttempts{5};

// An answer that takes longer is none: the server may be stopped.
constexpr timeval kAnswerTimeout{2, 0};

constexpr size_t kShownOfLog = 3000;

struct Free {
  void operator()(redisContext* context) const { redisFree(context); }
  void operator()(redisReply* reply) const { freeReplyObject(reply); }
};

}  // namespace

Server::Server(std::string directory)
    : directory_(std::move(directory)),
      socket_(directory_ + "/socket"),
      process_("server", arguments(false)) {
  std::filesystem::create_directory(directory_);
}

std::vector<std::string> Server::arguments(bool notesChanges) const {
  return {ZORBE_REDIS_SERVER,
          "--port",
          "0",
          "--unixsocket",
          socket_,
          "--dir",
          directory_,
          "--logfile",
          directory_ + "/log",
          "--save",
          "",
          "--appendonly",
          notesChanges ? "yes" : "no",
          "--auto-aof-rewrite-percentage",
          "0"};
}

void Server::start(Memory memory) {
  if (memory == Memory::kEmpty) {
    std::filesystem::remove(directory_ + "/dump.rdb");
    std::filesystem::remove_all(directory_ + "/appendonlydir");
  }
  process_ = Process("server", arguments(memory == Memory::kLog));
  process_.start();
  const auto deadline = Clock::now() + kStartTimeout;
  while (!ask({"PING"})) {
    if (process_.hasEnded() || Clock::now() > deadline) {
      throw Failure("the server does not start\n" + process_.log() + log());
    }
    static_cast<void>(process_.channel().endsWithin(kBetweenAttempts));
  }
}

std::optional<std::string> Server::ask(const std::vector<std::string>& words) const {
  const std::unique_ptr<redisContext, Free> context(
      redisConnectUnixWithTimeout(socket_.c_str(), kAnswerTimeout));
  if (!context || context->err != 0) return std::nullopt;
  redisSetTimeout(context.get(), kAnswerTimeout);
  std::vector<const char*> texts(words.size());
  std::vector<size_t> sizes(words.size());
  std::transform(words.begin(), words.end(), texts.begin(), [](auto& word) { return word.data(); });
  std::transform(words.begin(), words.end(), sizes.begin(), [](auto& word) { return word.size(); });
  const std::unique_ptr<redisReply, Free> reply(static_cast<redisReply*>(
      redisCommandArgv(context.get(), static_cast<int>(words.size()), texts.data(), sizes.data())));
  if (!reply || reply->type == REDIS_REPLY_ERROR) return std::nullopt;
  if (reply->type == REDIS_REPLY_INTEGER) return std::to_string(reply->integer);
  return reply->str == nullptr ? "" : std::string(reply->str, reply->len);
}

bool Server::endConnections() const {
  return ask({"CLIENT", "KILL", "TYPE", "normal", "SKIPME", "yes"}).has_value();
}

std::string Server::log() const {
  std::ifstream file(directory_ + "/log");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  return text.substr(text.size() - std::min(text.size(), kShownOfLog));
}

}  // namespace Zorbe::Test::RelayChaos
