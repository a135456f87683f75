// SPDX-License-Identifier: MIT
#include "stress/simulation/directory.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace Zorbe::Test::Simulation {
namespace {

// Small, so that processes that do not run for a while lose events.
constexpr std::size_t noticeLimit = 8;

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

Directory::Node* Directory::find(const std::string& path) {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? nullptr : &found->second;
}

bool Directory::isDirectory(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found != nodes_.end() && found->second.directory;
}

uint64_t Directory::inode(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? 0 : found->second.inode;
}

void Directory::makeDirectories(const std::string& path) {
  if (exists(path)) return;
  if (path != "/") makeDirectories(parentOf(path));
  Node node;
  node.inode = ++lastInode_;
  node.directory = true;
  nodes_[path] = node;
}

int Directory::create(const std::string& path) {
  if (!isDirectory(parentOf(path))) return ENOENT;
  Node& node = nodes_[path];
  if (node.directory) return EISDIR;
  if (node.inode == 0) node.inode = ++lastInode_;
  node.content.clear();
  return 0;
}

void Directory::close(const std::string& path, uint64_t file, const std::string& content) {
  if (inode(path) != file) return;  // removed meanwhile
  find(path)->content = content;
  tell(parentOf(path), IN_CLOSE_WRITE, nameOf(path));
}

int Directory::read(const std::string& path, std::string& content) const {
  const auto found = nodes_.find(path);
  if (found == nodes_.end()) return ENOENT;
  content = found->second.content;
  return 0;
}

int Directory::place(const std::string& path, Mapping mapping) {
  if (const int error = create(path)) return error;
  Node& node = *find(path);
  node.inode = ++lastInode_;
  node.mapping = std::move(mapping);
  tell(parentOf(path), IN_CLOSE_WRITE, nameOf(path));
  return 0;
}

Directory::Mapping Directory::map(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? nullptr : found->second.mapping;
}

int Directory::remove(const std::string& path) {
  if (!exists(path)) return ENOENT;
  const auto next = nodes_.upper_bound(path + "/");
  if (next != nodes_.end() && next->first.rfind(path + "/", 0) == 0) return ENOTEMPTY;
  erase(path);
  return 0;
}

int Directory::removeTree(const std::string& path) {
  if (!exists(path)) return ENOENT;
  for (;;) {
    const auto next = nodes_.upper_bound(path + "/");
    if (next == nodes_.end() || next->first.rfind(path + "/", 0) != 0) break;
    erase(std::string(next->first));
  }
  erase(path);
  return 0;
}

void Directory::erase(const std::string& path) {
  const uint64_t gone = inode(path);
  nodes_.erase(path);
  for (Watch* watch : watches_) {
    if (watch->directory != gone) continue;
    watch->directory = 0;
    push(*watch, {Notice::Kind::deleted, ""});
  }
  tell(parentOf(path), IN_DELETE, nameOf(path));
}

void Directory::tell(const std::string& directory, uint32_t event, const std::string& name) {
  const uint64_t there = inode(directory);
  for (Watch* watch : watches_) {
    if (watch->directory != there || (watch->mask & event) == 0) continue;
    push(*watch, {Notice::Kind::changed, name, event});
  }
}

// As the kernel's queue: an event like the last one is told once, and when it is full, the last
// thing told is that events are missing. The end of a watch is looked up then, and never lost.
void Directory::push(Watch& watch, Notice notice) {
  auto& notices = watch.notices;
  if (!notices.empty() && notices.back() == notice) return;
  if (notices.size() < noticeLimit || notice.kind == Notice::Kind::deleted) {
    notices.push_back(std::move(notice));
  } else if (notices.back().kind != Notice::Kind::error) {
    notices.push_back({Notice::Kind::error, "events were lost"});
  }
}

void Directory::watch(Watch& watch, const std::string& path, uint32_t mask) {
  const uint64_t there = inode(path);
  // Watching the same directory again takes nothing away that is on its way.
  if (there == 0 || there != watch.directory) unwatch(watch);
  watch.path = path;
  watch.mask = mask;
  watch.directory = there;
  if (std::find(watches_.begin(), watches_.end(), &watch) == watches_.end())
    watches_.push_back(&watch);
  if (there == 0) push(watch, {Notice::Kind::error, "inotify_add_watch() " + path});
}

void Directory::unwatch(Watch& watch) {
  watch.directory = 0;
  watch.notices.clear();
  watches_.erase(std::remove(watches_.begin(), watches_.end(), &watch), watches_.end());
}

}  // namespace Zorbe::Test::Simulation
