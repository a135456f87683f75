// SPDX-License-Identifier: MIT
#include "support/kernel/files.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace Zorbe::Test::Kernel {
namespace {

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

// Without "." and "..": there are no links to directories.
std::string plain(const std::string& path) {
  std::string whole;
  for (const std::string& component : Files::components(path)) {
    if (component == "..") whole.erase(whole.empty() ? 0 : whole.rfind('/'));
    if (component != "." && component != "..") whole += "/" + component;
  }
  return whole.empty() ? "/" : whole;
}

bool endsWithSlash(const std::string& path) {
  return !path.empty() && path.back() == '/';
}

}  // namespace

std::vector<std::string> Files::components(const std::string& path) {
  std::vector<std::string> found;
  std::string component;
  for (const char c : path + '/') {
    if (c != '/') {
      component += c;
    } else if (!component.empty()) {
      found.push_back(std::exchange(component, {}));
    }
  }
  return found;
}

const Files::Node* Files::find(const std::string& path) const {
  const auto found = nodes_.find(path);
  return found == nodes_.end() ? nullptr : &found->second;
}

Files::Node& Files::make(const std::string& path, mode_t mode) {
  Node& node = nodes_[path];
  node.inode = ++lastInode_;
  node.mode = mode;
  return node;
}

// Walks along the path, as the kernel does.
int Files::examine(const std::string& path, Links links, mode_t& mode) const {
  if (path.empty()) return ENOENT;
  std::string way;
  mode = find("/")->mode;
  for (const std::string& component : components(path)) {
    if (S_ISLNK(mode)) return ENOENT;
    if (!S_ISDIR(mode)) return ENOTDIR;
    if (component.size() > NAME_MAX) return ENAMETOOLONG;
    way += "/" + component;
    const Node* const node = find(plain(way));
    if (node == nullptr) return ENOENT;
    mode = node->mode;
  }
  const bool asDirectory = endsWithSlash(path);
  if (S_ISLNK(mode) && (links == Links::kFollowed || asDirectory)) return ENOENT;
  return asDirectory && !S_ISDIR(mode) ? ENOTDIR : 0;
}

int Files::makeDirectory(const std::string& path, mode_t mode) {
  mode_t there = 0;
  const int error = examine(path, Links::kNotFollowed, there);
  if (error == 0) return EEXIST;
  if (error != ENOENT || path.empty()) return error;
  const int above = examine(path.substr(0, path.rfind('/') + 1), Links::kFollowed, there);
  if (above == 0) makeDirectories(plain(path), mode);
  return above;
}

int Files::changeMode(const std::string& path, mode_t mode) {
  mode_t there = 0;
  const int error = examine(path, Links::kFollowed, there);
  if (error == 0) nodes_[plain(path)].mode = (there & S_IFMT) | mode;
  return error;
}

bool Files::isDirectory(const std::string& path) const {
  const Node* const node = find(path);
  return node != nullptr && S_ISDIR(node->mode);
}

uint64_t Files::inode(const std::string& path) const {
  const Node* const node = find(path);
  return node == nullptr ? 0 : node->inode;
}

void Files::makeDirectories(const std::string& path, mode_t mode) {
  if (exists(path)) return;
  if (path != "/") makeDirectories(parentOf(path), mode);
  make(path, S_IFDIR | mode);
  report(parentOf(path), IN_CREATE | IN_ISDIR, nameOf(path));
}

void Files::makeLink(const std::string& path) {
  make(path, S_IFLNK | 0777);
}

int Files::create(const std::string& path) {
  if (!isDirectory(parentOf(path))) return ENOENT;
  if (isDirectory(path)) return EISDIR;
  if (!exists(path)) make(path, S_IFREG | 0644);
  nodes_[path].content.clear();
  return 0;
}

void Files::close(const std::string& path, uint64_t file, const std::string& content) {
  if (inode(path) != file) return;  // removed meanwhile
  nodes_[path].content = content;
  report(parentOf(path), IN_CLOSE_WRITE, nameOf(path));
}

int Files::read(const std::string& path, std::string& content) const {
  const Node* const node = find(path);
  if (node == nullptr) return ENOENT;
  content = node->content;
  return 0;
}

int Files::place(const std::string& path, Mapping mapping) {
  if (const int error = create(path)) return error;
  make(path, S_IFREG | 0644).mapping = std::move(mapping);
  report(parentOf(path), IN_CLOSE_WRITE, nameOf(path));
  return 0;
}

int Files::link(const std::string& path) {
  if (exists(path)) return EEXIST;
  if (const int error = create(path)) return error;
  report(parentOf(path), IN_CREATE, nameOf(path));
  return 0;
}

int Files::rename(const std::string& from, const std::string& to) {
  if (!exists(from)) return ENOENT;
  if (isDirectory(to)) return EISDIR;
  nodes_[to] = nodes_[from];
  nodes_.erase(from);
  report(parentOf(from), IN_MOVED_FROM, nameOf(from));
  report(parentOf(to), IN_MOVED_TO, nameOf(to));
  return 0;
}

Files::Mapping Files::map(const std::string& path) const {
  const Node* const node = find(path);
  return node == nullptr ? nullptr : node->mapping;
}

int Files::remove(const std::string& path) {
  if (!exists(path)) return ENOENT;
  const auto next = nodes_.upper_bound(path + "/");
  if (next != nodes_.end() && next->first.rfind(path + "/", 0) == 0) return ENOTEMPTY;
  erase(path);
  return 0;
}

// All paths of a tree, the deeper ones first.
std::vector<std::string> Files::treeOf(const std::string& path) const {
  std::vector<std::string> tree = {path};
  for (auto next = nodes_.upper_bound(path + "/");
       next != nodes_.end() && next->first.rfind(path + "/", 0) == 0; ++next) {
    tree.push_back(next->first);
  }
  std::reverse(tree.begin(), tree.end());
  return tree;
}

int Files::removeTree(const std::string& path) {
  if (!exists(path)) return ENOENT;
  for (const std::string& each : treeOf(path)) erase(each);
  return 0;
}

void Files::unmount(const std::string& path) {
  for (const std::string& each : treeOf(path)) {
    for (Inotify* watches : watchers_) watches->end(inode(each), IN_UNMOUNT);
    nodes_.erase(each);
  }
}

// What was there is still watched, by its inode.
void Files::replace(const std::string& path) {
  if (!exists(path)) return;
  report(parentOf(path), IN_MOVED_FROM, nameOf(path));
  report(path, IN_MOVE_SELF, "");
  for (const std::string& each : treeOf(path)) nodes_.erase(each);
  makeDirectories(path);
}

void Files::erase(const std::string& path) {
  const uint64_t erased = inode(path);
  const uint32_t event = IN_DELETE | (isDirectory(path) ? IN_ISDIR : 0);
  nodes_.erase(path);
  if (reportsParentFirst) report(parentOf(path), event, nameOf(path));
  for (Inotify* watches : watchers_) {
    watches->report(erased, IN_DELETE_SELF, "");
    watches->end(erased, 0);
  }
  if (!reportsParentFirst) report(parentOf(path), event, nameOf(path));
}

void Files::report(const std::string& directory, uint32_t event, const std::string& name) {
  for (Inotify* watches : watchers_) watches->report(inode(directory), event, name);
}

std::map<std::string, mode_t> Files::modes() const {
  std::map<std::string, mode_t> modes;
  for (const auto& [path, node] : nodes_) modes[path] = node.mode;
  return modes;
}

void Files::detach(Inotify* watches) {
  watchers_.erase(std::remove(watchers_.begin(), watchers_.end(), watches), watchers_.end());
}

}  // namespace Zorbe::Test::Kernel
