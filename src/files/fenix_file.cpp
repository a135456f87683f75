// SPDX-License-Identifier: MIT
#include <zorbe/exceptions.h>
#include <zorbe/fenix_file.h>
#include <zorbe/util.h>

#include <cstdlib>

#include "foundation/log.h"

namespace Zorbe {

namespace {

std::string fenixPath(const std::string& dir) {
  return dir.empty() ? "fenix" : dir + "/fenix";
}

}  // namespace

unsigned FenixFile::read(Brask::Platform::DebugHandler& handler, const std::string& dir) {
  const std::string file = fenixPath(dir);
  const std::string content = Util::fileRead(handler, file, true);
  // A long of 32 bits does not hold the upper half of the ids.
  const auto id = static_cast<unsigned>(std::strtoll(content.c_str(), nullptr, 10));
  if (id == 0) {
    ZORBE_LOG(handler, kMilestone, "FenixFile::read() unable to read fenixId from " << file);
  } else {
    ZORBE_LOG(handler, kMilestone, "FenixFile::read() read fenixId: " << id << " from " << file);
  }
  return id;
}

bool FenixFile::validate(Brask::Platform::DebugHandler& handler, const std::string& dir,
                         unsigned expectedId) {
  const unsigned id = read(handler, dir);
  if (id == expectedId) return true;
  Log::fail<CorruptionDetectedException>(
      handler, ZORBE_TEXT("FenixFile::validate() fenix changed " << dir << " fenixId:" << id
                                                                 << " expectedId:" << expectedId));
}

void FenixFile::write(Brask::Platform::DebugHandler& handler, const std::string& dir, unsigned id) {
  Util::fileWrite(handler, fenixPath(dir), std::to_string(id), false);
}

}  // namespace Zorbe
