// SPDX-License-Identifier: MIT
#include "stress/relay/server_events.h"

#include <algorithm>

namespace Zorbe::Test::RelayChaos {
namespace {

constexpr unsigned kMostMillisecondsOfPause = 1500;
constexpr size_t kBytesOfId = 16;

const char* nameOf(Server::Memory memory) {
  switch (memory) {
    case Server::Memory::kEmpty:
      return "with empty memory";
    case Server::Memory::kSnapshot:
      return "from a snapshot";
    case Server::Memory::kLog:
      break;
  }
  return "from its log";
}

}  // namespace

std::vector<Event> ServerEvents::all() {
  return {
      {[this] { return kill(Server::Memory::kEmpty); }, "server lost"},
      {[this] { return kill(Server::Memory::kSnapshot); }, "server set back"},
      {[this] { return setBackAlone(); }, "server set back without a publisher"},
      {[this] { return kill(Server::Memory::kLog); }, "server killed"},
      {[this] { return restart(); }, "server restarted"},
      {[this] { return stop(); }, "server stopped"},
      {[this] { return save(); }, "snapshot saved"},
      {[this] { return save(); }, "snapshot saved"},
      {[this] { return pause(); }, "server slow"},
      {[this] { return fill(); }, "server full"},
      {[this] { return flush(); }, "server emptied"},
      {[this] { return removeKey(); }, "key removed"},
      {[this] { return trim(); }, "changes trimmed"},
      {[this] { return addEntry(); }, "garbage in the changes"},
      {[this] { return addRecords(); }, "garbage in the records"},
      {[this] { return addRecords(); }, "garbage in the records"},
      {[this] { return endConnections(); }, "connections ended"},
      {[this] { return endConnections(); }, "connections ended"},
  };
}

bool ServerEvents::ask(const std::vector<std::string>& words) {
  return hosts_.server().process().isAwake() && hosts_.server().ask(words).has_value();
}

std::string ServerEvents::bytes(size_t size) {
  std::string text(size, '\0');
  for (char& byte : text) byte = static_cast<char>(random_.next());
  return text;
}

std::string ServerEvents::start(Server::Memory memory) {
  hosts_.publishers().serverHasLost();
  hosts_.server().start(memory);
  return nameOf(memory);
}

// It is back at once, or after the burst, then with its last snapshot.
std::string ServerEvents::kill(Server::Memory memory) {
  Process& process = hosts_.server().process();
  if (process.isAlive()) {
    process.kill();
    ++kills_;
    if (random_.percent(30)) {
      hosts_.publishers().serverHasLost();
      return "it is missing";
    }
  }
  return start(memory);
}

// Nobody restores what it has lost: mirrors must not take what is older.
std::string ServerEvents::setBackAlone() {
  Process& process = hosts_.server().process();
  if (!process.isAlive()) return "";
  for (Process& publisher : hosts_.publishers().all()) {
    if (publisher.isAwake()) publisher.stop();
  }
  process.kill();
  ++kills_;
  return start(Server::Memory::kSnapshot);
}

std::string ServerEvents::restart() {
  if (!hosts_.server().process().isAwake()) return "";
  hosts_.server().process().leave();
  return start(random_.percent(50) ? Server::Memory::kSnapshot : Server::Memory::kLog);
}

std::string ServerEvents::stop() {
  if (!hosts_.server().process().isAwake()) return "";
  hosts_.server().process().stop();
  return "until the end of the burst";
}

std::string ServerEvents::save() {
  return ask({"SAVE"}) ? "done" : "";
}

std::string ServerEvents::pause() {
  const std::string milliseconds = std::to_string(random_.below(kMostMillisecondsOfPause) + 1);
  const char* const what = random_.percent(50) ? "ALL" : "WRITE";
  return ask({"CLIENT", "PAUSE", milliseconds, what}) ? milliseconds + " ms " + what : "";
}

std::string ServerEvents::fill() {
  return ask({"CONFIG", "SET", "maxmemory", "1"}) ? "until the end of the burst" : "";
}

std::string ServerEvents::flush() {
  hosts_.publishers().serverHasLost();
  return ask({"FLUSHALL"}) ? "all of it" : "";
}

std::string ServerEvents::removeKey() {
  static constexpr const char* kSuffixes[] = {"about", "changes", "records"};
  const char* const suffix = kSuffixes[random_.below(std::size(kSuffixes))];
  hosts_.publishers().serverHasLost();
  if (!ask({"UNLINK", keyOnServer(suffix)})) return "";
  return suffix;
}

std::string ServerEvents::trim() {
  const std::string length = std::to_string(random_.below(2));
  return ask({"XTRIM", keyOnServer("changes"), "MAXLEN", length}) ? "to " + length : "";
}

// Of any shape: with the field that names the entry before, or with changes of records.
std::string ServerEvents::addEntry() {
  std::vector<std::string> words = {"XADD", keyOnServer("changes"), "*"};
  if (random_.percent(30)) words.insert(words.end(), {"", bytes(random_.below(20))});
  words.insert(words.end(), {bytes(sizeof(Key)), bytes(random_.below(80))});
  return ask(words) ? std::to_string(words.size() - 3) + " words" : "";
}

// Keys and values of wrong sizes; and a record that looks like one of the table's, but for its key.
std::string ServerEvents::addRecords() {
  std::string alien = bytes(sizeof(Key));
  alien.back() = static_cast<char>(alien.back() | 0x40);  // not below kKeys
  const std::string id = random_.percent(50) ? bytes(kBytesOfId) : std::string(kBytesOfId, '\0');
  const bool isDone =
      ask({"HSET", keyOnServer("records"), bytes(random_.below(3)), bytes(random_.below(80)), alien,
           bytes(random_.below(kBytesOfId + sizeof(Record)))}) &&
      ask({"HSET", keyOnServer("records"), std::string("\1") + alien.substr(1),
           id + bytes(sizeof(Record))});
  return isDone ? "three fields" : "";
}

std::string ServerEvents::endConnections() {
  if (!hosts_.server().process().isAwake()) return "";
  return hosts_.server().endConnections() ? "of all" : "";
}

}  // namespace Zorbe::Test::RelayChaos
