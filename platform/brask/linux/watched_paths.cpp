// SPDX-License-Identifier: MIT
#include "brask/linux/watched_paths.h"

#include <tuple>
#include <utility>

namespace Brask::Linux {

std::string_view directoryOf(std::string_view path) {
  return path.substr(0, path.find_last_not_of('/') + 1);
}

PathEntry entryOf(std::string_view path) {
  const std::string_view whole = directoryOf(path);
  const size_t slash = whole.rfind('/');
  const std::string_view name = whole.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") return {whole, ""};
  if (slash == std::string_view::npos) return {".", name};
  return {directoryOf(whole.substr(0, slash)), name};
}

bool WatchedPaths::Order::operator()(const InotifyWatcher* left,
                                     const InotifyWatcher* right) const {
  const PathEntry a = entryOf(left->path);
  const PathEntry b = entryOf(right->path);
  const int directories = a.directory.compare(b.directory);
  if (directories != 0) return directories < 0;
  const int names = a.name.compare(b.name);
  return names != 0 ? names < 0 : left->number < right->number;
}

bool WatchedPaths::Order::operator()(const InotifyWatcher* left, const PathEntry& right) const {
  const PathEntry entry = entryOf(left->path);
  return std::tie(entry.directory, entry.name) < std::tie(right.directory, right.name);
}

void WatchedPaths::place(InotifyWatcher& watcher, std::string path) {
  if (!watcher.asked) {
    watcher.path = std::move(path);
    watcher.number = count_++;
    watchers_.insert(&watcher);
    watcher.asked = true;
  } else if (watcher.path != path) {
    auto node = watchers_.extract(watchers_.find(&watcher));
    watcher.path = std::move(path);
    watchers_.insert(std::move(node));
  }
}

void WatchedPaths::remove(InotifyWatcher& watcher) {
  if (!watcher.asked) return;
  watchers_.erase(&watcher);
  watcher.asked = false;
}

}  // namespace Brask::Linux
