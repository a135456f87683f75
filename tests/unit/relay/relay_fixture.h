// SPDX-License-Identifier: MIT
#pragma once

#include "mirror/mirror.h"
#include "publish/publisher.h"
#include "support/fixture.h"
#include "support/loop.h"
#include "support/record.h"
#include "unit/relay/redis_server.h"

#include <zorbe/table/in_loop.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>

namespace Zorbe::Test {

/// Two hosts in one process: tables below `here` and `there`, and a server between them.
class RelayTest : public ZorbeTest {
 protected:
  using Writer = Table::LoopWriter<uint32_t, Record>;
  using Reader = Table::LoopReader<uint32_t, Record>;

  RelayTest() {
    for (const char* name : {"here", "there", "server"}) {
      std::filesystem::create_directory(inRoot(name));
    }
    handler.setMaxLevel(2);
  }

  RedisServer& server() {
    if (!server_)
      server_ = std::make_unique<RedisServer>(inRoot("server"), serverOptions, serverLauncher);
    return *server_;
  }

  Table::Options at(const std::string& host) {
    Table::Options options;
    options.root = inRoot(host);
    options.log = &handler;
    return options;
  }

  Relay::Session::Options sessionOptions(bool writes) {
    Relay::Session::Options options;
    options.address = Relay::parseAddress(server().address());
    options.writes = writes;
    return options;
  }

  Relay::Publisher::Options publishing(const std::string& table = "t") {
    Relay::Publisher::Options options;
    options.server = sessionOptions(true);
    options.table = options.name = table;
    options.reading = at("here");
    options.prefix = "zorbe:";
    options.history = 1 << 20;
    return options;
  }

  Relay::Mirror::Options mirroring(const std::string& table = "t") {
    Relay::Mirror::Options options;
    options.server = sessionOptions(false);
    options.table = options.name = table;
    options.writing = at("there");
    options.prefix = "zorbe:";
    return options;
  }

  void makePublisher() { publisher = std::make_unique<Relay::Publisher>(publishing(), handler); }
  void makeMirror() { mirror = std::make_unique<Relay::Mirror>(mirroring(), handler); }

  bool turnUntil(const std::function<bool()>& done) { return Zorbe::Test::turnUntil(loop, done); }

  using Content = std::map<uint32_t, int64_t>;

  static Content contentOf(Reader& reader) {
    Content content;
    for (const auto& [key, record] : reader.scan()) content[key] = record.a;
    return content;
  }

  static Content contentOf(Writer& writer) {
    Content content;
    for (const auto& [key, record] : writer.scan()) content[key] = record.a;
    return content;
  }

  /// The table there gets the content of the one here.
  bool becomeEqual() {
    const Content wanted = contentOf(*writer);
    return turnUntil([&] { return contentOf(*reader) == wanted; });
  }

  void makeTables() {
    writer = std::make_unique<Writer>("t", at("here"));
    reader = std::make_unique<Reader>("t", at("there"));
  }

  void makeAll() {
    makeTables();
    makePublisher();
    makeMirror();
  }

  /// How many messages have this text in them.
  size_t countLogged(const std::string& text) const {
    const auto& messages = handler.messages();
    return static_cast<size_t>(std::count_if(
        messages.begin(), messages.end(),
        [&](const Message& message) { return message.text.find(text) != std::string::npos; }));
  }

  bool logs(const std::string& text) const { return countLogged(text) > 0; }

  std::vector<std::string> serverOptions;
  std::vector<std::string> serverLauncher;
  std::unique_ptr<RedisServer> server_;
  Brask::Linux::EventLoop loop;
  std::unique_ptr<Writer> writer;
  std::unique_ptr<Reader> reader;
  std::unique_ptr<Relay::Publisher> publisher;
  std::unique_ptr<Relay::Mirror> mirror;
};

}  // namespace Zorbe::Test
