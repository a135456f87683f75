// SPDX-License-Identifier: MIT
#include "stress/relay/host_events.h"

#include <filesystem>

namespace Zorbe::Test::RelayChaos {

std::vector<Event> HostEvents::all() {
  return {
      {[this] { return kill(hosts_.writer()); }, "writer killed"},
      {[this] { return restart(hosts_.writer()); }, "writer restarted"},
      {[this] { return stop(hosts_.writer()); }, "writer stopped"},
      {[this] { return removeTable(); }, "table removed"},
      {[this] { return killPublisher(); }, "publisher killed"},
      {[this] { return restartPublisher(); }, "publisher restarted"},
      {[this] { return stopPublisher(); }, "publisher stopped"},
      {[this] { return startPublisher(); }, "second publisher started"},
      {[this] { return takeOverSilently(); }, "publisher replaced"},
      {[this] { return takeOverSilently(); }, "publisher replaced"},
      {[this] { return kill(anyMirror().mirror); }, "mirror killed"},
      {[this] { return kill(anyMirror().mirror); }, "mirror killed"},
      {[this] { return restart(anyMirror().mirror); }, "mirror restarted"},
      {[this] { return stop(anyMirror().mirror); }, "mirror stopped"},
      {[this] { return removeCopy(); }, "copy removed"},
      {[this] { return kill(anyLink()); }, "link cut"},
      {[this] { return stop(anyLink()); }, "link silent"},
      {[this] { return slowMirror(); }, "mirror slow"},
      {[this] { return slowMirror(); }, "mirror slow"},
      {[this] { return slow(hosts_.link()); }, "publisher slow"},
  };
}

// It runs again at once, or after the burst.
std::string HostEvents::kill(Process& process) {
  if (!process.isAlive()) return "";
  process.kill();
  ++kills_;
  if (random_.percent(50)) return process.name() + ", which is missing";
  process.start();
  return process.name();
}

std::string HostEvents::restart(Process& process) {
  if (!process.isAwake()) return "";
  process.leave();
  process.start();
  return process.name();
}

// Until after the burst, or until it is killed.
std::string HostEvents::stop(Process& process) {
  if (!process.isAwake()) return "";
  process.stop();
  return process.name();
}

// Every record disappears.
std::string HostEvents::removeTable() {
  return makeAgain(hosts_.writer(), hosts_.sourceRoot());
}

// With it, what the host knew of the past: its reader, too, begins again.
std::string HostEvents::removeCopy() {
  MirrorHost& host = anyMirror();
  if (!host.mirror.isAlive()) return "";
  host.follower.kill();
  host.state.forget();
  std::string hit = makeAgain(host.mirror, host.root);
  host.follower.start();
  return hit;
}

std::string HostEvents::makeAgain(Process& writer, const std::string& root) {
  if (!writer.isAlive()) return "";
  writer.kill();
  ++kills_;
  std::filesystem::remove_all(root + "/" + kTableName);
  writer.start();
  return writer.name();
}

Process* HostEvents::anyPublisher() {
  std::list<Process>& all = hosts_.publishers().all();
  return all.empty() ? nullptr : &*std::next(all.begin(), random_.below(all.size()));
}

MirrorHost& HostEvents::anyMirror() {
  return hosts_.mirrors()[random_.below(hosts_.mirrors().size())];
}

Process& HostEvents::anyLink() {
  const std::vector<Process*> links = hosts_.links();
  return *links[random_.below(links.size())];
}

std::string HostEvents::killPublisher() {
  Process* const publisher = anyPublisher();
  if (publisher == nullptr) return "";
  std::string name = publisher->name();
  hosts_.publishers().kill(*publisher);
  ++kills_;
  if (random_.percent(50)) hosts_.publishers().start();
  return name;
}

// One of several may be about to end by itself.
std::string HostEvents::restartPublisher() {
  Process* const publisher = anyPublisher();
  if (publisher == nullptr || !publisher->isAwake() || hosts_.publishers().all().size() > 1) {
    return "";
  }
  return restart(*publisher);
}

std::string HostEvents::stopPublisher() {
  Process* const publisher = anyPublisher();
  return publisher == nullptr ? "" : stop(*publisher);
}

std::string HostEvents::startPublisher() {
  if (hosts_.publishers().all().size() != 1) return "";
  return hosts_.publishers().start().name();
}

// The older one learns of it when it is continued: it has to ask, since its connection has ended.
std::string HostEvents::takeOverSilently() {
  if (!hosts_.server().process().isAwake() || hosts_.publishers().all().size() != 1) return "";
  Process& older = hosts_.publishers().all().front();
  if (older.isAwake()) older.stop();
  if (!hosts_.server().endConnections()) return "";
  return hosts_.publishers().start().name();
}

// One that begins again: all records come over the slow link, and changes meanwhile.
std::string HostEvents::slowMirror() {
  MirrorHost& host = anyMirror();
  const std::string hit = slow(host.link);
  return hit.empty() ? "" : restart(host.mirror);
}

std::string HostEvents::slow(Process& link) {
  if (!link.isAwake()) return "";
  link.channel().send("slow");
  return link.name();
}

}  // namespace Zorbe::Test::RelayChaos
