// SPDX-License-Identifier: MIT
#include "records/source.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <cerrno>
#include <optional>
#include <stdexcept>

#include "core/root.h"
#include "output/text.h"

namespace Zorbe::Tool {

using Zorbe::Table::File;
using Zorbe::Table::Place;

namespace {

[[noreturn]] void failKind(const Place& place, const std::string& why) {
  throw std::runtime_error("table '" + place.table + "' is not of the ready-made kind: " + why);
}

// The first eight bytes of a file; nothing without a file, 0 while it has fewer.
std::optional<uint64_t> magicIn(const Place& place, const char* name) {
  const std::optional<File> file = File::open(place, name, Zorbe::Table::Access::kRead);
  if (!file) return std::nullopt;
  uint64_t magic = 0;
  const ssize_t length = ::pread(file->fd(), &magic, sizeof magic, 0);
  if (length < 0) {
    const int error = errno;
    Zorbe::Table::failCall(place, "pread()", file->path(), error);
  }
  return length == static_cast<ssize_t>(sizeof magic) ? magic : 0;
}

// Whether there is such a file; it may be unfinished.
bool hasFileOfKind(const Place& place, const char* name, const char (&magic)[9]) {
  const std::optional<uint64_t> found = magicIn(place, name);
  if (!found) return false;
  if (*found != 0 && *found != Zorbe::Table::magicOf(magic)) {
    failKind(place, place.path(name) + " begins with '" + Util::decodeMagic(*found) +
                        "' instead of '" + magic + "'");
  }
  return true;
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// A writer of the ready-made kind creates `slots` first, and no incarnation id.
void checkKind(const Place& place) {
  const bool hasSlots = hasFileOfKind(place, Zorbe::Table::kSlotsFile, Zorbe::Table::kSlotsMagic);
  static_cast<void>(hasFileOfKind(place, Zorbe::Table::kIndexFile, Zorbe::Table::kIndexMagic));
  for (const uint64_t generation : {1U, 2U}) {
    static_cast<void>(
        hasFileOfKind(place, Zorbe::Table::logFileOf(generation), Zorbe::Table::kLogMagic));
  }
  if (!hasSlots && exists(place.path("fenix"))) failKind(place, "it has no file 'slots'");
}

Place placeIn(Brask::Platform::DebugHandler& handler, const std::string& name) {
  Zorbe::Table::Options options;
  options.log = &handler;
  return Zorbe::Table::placeOf(name, Zorbe::Table::resolveRoot(name, options));
}

}  // namespace

Source openSource(Brask::Platform::DebugHandler& handler, const std::string& name) {
  const Place place = placeIn(handler, name);
  checkKind(place);
  Zorbe::Table::ReaderOptions options;
  options.place = place;
  Source source{place.directory, Zorbe::Table::TableReader::open(options), ""};
  if (source.reader) return source;
  source.problem = exists(place.path(Zorbe::Table::kSlotsFile))
                       ? "table " + word(name) + " at " + printable(place.directory) +
                             " has no records: it is not complete, or older than the last start " +
                             "of the machine"
                       : "no table " + word(name) + " at " + printable(place.directory);
  return source;
}

void refuseOtherKind(Brask::Platform::DebugHandler& handler, const std::string& name) {
  checkKind(placeIn(handler, name));
}

}  // namespace Zorbe::Tool
