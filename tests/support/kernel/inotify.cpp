// SPDX-License-Identifier: MIT
#include "support/kernel/inotify.h"

#include <sys/inotify.h>

#include <cstring>
#include <utility>

namespace Zorbe::Test::Kernel {

int Inotify::find(uint64_t inode) const {
  const auto found = watchOf_.find(inode);
  return found == watchOf_.end() ? 0 : found->second;
}

int Inotify::add(uint64_t inode, uint32_t mask) {
  int& wd = watchOf_[inode];
  if (wd == 0) wd = ++lastWatch_;
  uint32_t& events = watches_[wd];
  events = ((mask & IN_MASK_ADD) != 0 ? events : 0) | (mask & IN_ALL_EVENTS);
  return wd;
}

bool Inotify::remove(int wd) {
  if (watches_.erase(wd) == 0) return false;
  for (auto each = watchOf_.begin(); each != watchOf_.end();) {
    each = each->second == wd ? watchOf_.erase(each) : std::next(each);
  }
  queue({wd, IN_IGNORED, "", 0, 0});
  return true;
}

void Inotify::report(uint64_t inode, uint32_t event, const std::string& name) {
  const auto found = watches_.find(find(inode));
  if (found != watches_.end() && (found->second & event & IN_ALL_EVENTS) != 0)
    queue({found->first, event, name, 0, 0});
}

void Inotify::end(uint64_t inode, uint32_t why) {
  const int wd = find(inode);
  if (wd == 0) return;
  if (why != 0) queue({wd, why, "", 0, 0});
  remove(wd);
}

void Inotify::queue(InotifyEvent event) {
  event.first = event.last = tick();
  if (!queue_.empty() && queue_.back() == event) {
    queue_.back().last = event.last;
    return;
  }
  if (queue_.size() > limit_) return;
  if (queue_.size() == limit_) event = {-1, IN_Q_OVERFLOW, "", event.first, event.last};
  queue_.push_back(std::move(event));
}

void Inotify::overflow() {
  queue_.clear();
  queue({-1, IN_Q_OVERFLOW, "", 0, 0});
}

InotifyEvent Inotify::take() {
  InotifyEvent event = std::move(queue_.front());
  queue_.pop_front();
  return event;
}

std::size_t Inotify::read(char* buffer, std::size_t size, std::size_t most,
                          std::vector<InotifyEvent>& taken) {
  std::size_t used = 0;
  for (std::size_t count = 0; count < most && !queue_.empty(); ++count) {
    const InotifyEvent& event = queue_.front();
    inotify_event header = {};
    header.wd = event.wd;
    header.mask = event.mask;
    const std::size_t block = sizeof header;
    if (!event.name.empty())
      header.len = static_cast<uint32_t>((event.name.size() / block + 1) * block);
    if (used + block + header.len > size) break;
    std::memcpy(buffer + used, &header, block);
    std::memset(buffer + used + block, 0, header.len);
    event.name.copy(buffer + used + block, event.name.size());
    used += block + header.len;
    taken.push_back(take());
  }
  return used;
}

}  // namespace Zorbe::Test::Kernel
