// SPDX-License-Identifier: MIT
#include "brask/linux/inotify_notices.h"

#include <new>
#include <utility>

namespace Brask::Linux {

void InotifyNotices::add(InotifyWatcher& watcher, Kind kind, std::string what) {
  const uint64_t number = count_++;
  const auto added = notices_.emplace(number, Notice{&watcher, kind, std::move(what)}).first;
  try {
    watcher.notices.insert(number);
  } catch (const std::bad_alloc&) {
    notices_.erase(added);
    throw;
  }
  if (kind == Kind::kRefusal) ++watcher.refusals;
  if (kind == Kind::kEnd) ++watcher.ends;
}

InotifyNotices::Notice InotifyNotices::extract(Notices::iterator position) {
  Notice notice = std::move(position->second);
  notice.watcher->notices.erase(position->first);
  if (notice.kind == Kind::kRefusal) --notice.watcher->refusals;
  if (notice.kind == Kind::kEnd) --notice.watcher->ends;
  notices_.erase(position);
  return notice;
}

bool InotifyNotices::take(Notice& notice) {
  if (notices_.empty() || notices_.begin()->first >= turn_) return false;
  notice = extract(notices_.begin());
  return true;
}

void InotifyNotices::drop(InotifyWatcher& watcher, std::optional<Kind> kept) {
  for (auto next = watcher.notices.begin(); next != watcher.notices.end();) {
    const auto notice = notices_.find(*next++);  // extract() erases the number
    if (notice->second.kind != kept) extract(notice);
  }
}

}  // namespace Brask::Linux
