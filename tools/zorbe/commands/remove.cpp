// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <zorbe/exceptions.h>
#include <zorbe/root_path.h>
#include <zorbe/util.h>

#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>

#include "commands/commands.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

/// Why a table is not removed. A result, not a failure.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// While it exists, no process can become the writer.
class WriterLock {
 public:
  WriterLock(Handler& handler, const RootPath& root)
      : handler_(handler), fd_(Util::acquireWriterLock(handler, root)) {}
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;
  ~WriterLock() { static_cast<void>(Util::releaseWriterLock(handler_, fd_)); }

 private:
  Handler& handler_;
  int fd_;
};

std::string describeForeign(const RootPath& root, const Entry& entry) {
  const std::string path = word(root.fullPath(entry.name));
  return entry.ours ? path + " is a " + entry.kind() + ", not a file of the table"
                    : path + " does not belong to the table";
}

Listing requireOnlyTableFiles(Handler& handler, const RootPath& root) {
  Listing listing = readListing(handler, root.path);
  if (listing.error != 0) {
    throw std::system_error(listing.error, std::generic_category(), root.path);
  }
  if (listing.link) throw Refusal(word(root.path) + " is a symbolic link");
  for (const Entry& entry : listing.entries) {
    if (!entry.ours || entry.isDirectory()) throw Refusal(describeForeign(root, entry));
  }
  return listing;
}

std::string holder(const DuplicateWriterException& found) {
  if (found.pid == 0) return "a process that you may not inspect";
  return "pid " + std::to_string(found.pid) + " (" + printable(found.owner) + ")";
}

void throwFailures(Handler& handler) {
  const auto failures = handler.takeFailures();
  if (!failures.empty()) throw std::runtime_error(failures.front());
}

// Returns the names of the removed files, without the last-owner file of this process.
Json removeHoldingLock(Handler& handler, RootPath& root) {
  const Listing before = requireOnlyTableFiles(handler, root);
  const WriterLock lock(handler, root);
  const Listing listing = requireOnlyTableFiles(handler, root);
  static_cast<void>(
      handler.takeFailures());  // this process's own last-owner file is about to be removed
  for (const Entry& entry : listing.entries) root.removeFile(entry.name);
  throwFailures(handler);
  root.cleanup();
  throwFailures(handler);
  Json removed = Json::array();
  for (const Entry& entry : before.entries) removed.push_back(utf8(entry.name));
  return removed;
}

int report(const Context& context, const std::string& name, const std::string& refusal,
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
  return refusal.empty() ? kYes : kNo;
}

}  // namespace

int remove(Context& context, const std::string& name) {
  RootPath root(context.handler, name, false);
  if (!root.exists()) return report(context, name, "there is no " + word(root.path), Json::array());
  try {
    return report(context, name, "", removeHoldingLock(context.handler, root));
  } catch (const Refusal& refusal) {
    return report(context, name, refusal.what(), Json::array());
  } catch (const DuplicateWriterException& found) {
    return report(context, name, "its writer is " + holder(found), Json::array());
  }
}

}  // namespace Zorbe::Tool
