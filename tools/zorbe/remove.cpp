// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <zorbe/exceptions.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "commands.h"
#include "json.h"
#include "text.h"

namespace Zorbe::Tool {

namespace {

/// Why a table is not removed. An answer, not a failure.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// For as long as it lives no writer can come.
class WriterLock {
 public:
  WriterLock(Handler& handler, const RootPath& root)
      : handler_(handler), fd_(Util::acquireWriterLock(handler, root)) {}
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;
  ~WriterLock() { (void)Util::releaseWriterLock(handler_, fd_); }

 private:
  Handler& handler_;
  int fd_;
};

std::string foreignWords(const RootPath& root, const Entry& entry) {
  const std::string path = word(root.fullPath(entry.name));
  return entry.ours ? path + " is a " + entry.kind() + ", not a file of the table"
                    : path + " does not belong to the table";
}

Listing requireOnlyOurs(Handler& handler, const RootPath& root) {
  Listing listing = readListing(handler, root.path);
  if (listing.error != 0) {
    throw std::system_error(listing.error, std::generic_category(), root.path);
  }
  if (listing.link) throw Refusal(word(root.path) + " is a symbolic link");
  for (const Entry& entry : listing.entries) {
    if (!entry.ours || entry.isDirectory()) throw Refusal(foreignWords(root, entry));
  }
  return listing;
}

std::string holder(const DuplicateWriterException& found) {
  if (found.pid == 0) return "a process that you may not look at";
  return "pid " + std::to_string(found.pid) + " (" + printable(found.owner) + ")";
}

void throwFailures(Handler& handler) {
  const auto failures = handler.takeFailures();
  if (!failures.empty()) throw std::runtime_error(failures.front());
}

// What the directory held, the caller's own note of having held the lock left out.
Json removeHoldingLock(Handler& handler, RootPath& root) {
  const Listing before = requireOnlyOurs(handler, root);
  const WriterLock lock(handler, root);
  const Listing listing = requireOnlyOurs(handler, root);
  (void)handler.takeFailures();  // a note that could not be written does not matter here
  for (const Entry& entry : listing.entries) root.removeFile(entry.name);
  throwFailures(handler);
  root.cleanup();
  throwFailures(handler);
  Json removed = Json::array();
  for (const Entry& entry : before.entries) removed.push_back(utf8(entry.name));
  return removed;
}

int tell(const Context& context, const std::string& name, const std::string& refusal,
         const Json& files) {
  if (context.json) {
    print({{"name", utf8(name)},
           {"removed", refusal.empty()},
           {"reason", refusal.empty() ? Json() : Json(refusal)},
           {"files", files}});
  } else if (refusal.empty()) {
    std::cout << word(name) << ": removed, with " << files.size() << " files\n";
  } else {
    std::cerr << "zorbe: " << word(name) << " is not removed: " << refusal << '\n';
  }
  return refusal.empty() ? yes : no;
}

}  // namespace

int remove(Context& context, const std::string& name) {
  RootPath root(context.handler, name, false);
  if (!root.exists()) return tell(context, name, "there is no " + word(root.path), Json::array());
  try {
    return tell(context, name, "", removeHoldingLock(context.handler, root));
  } catch (const Refusal& refusal) {
    return tell(context, name, refusal.what(), Json::array());
  } catch (const DuplicateWriterException& found) {
    return tell(context, name, "its writer is " + holder(found), Json::array());
  }
}

}  // namespace Zorbe::Tool
