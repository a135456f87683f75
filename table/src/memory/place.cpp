// SPDX-License-Identifier: MIT
#include "memory/place.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <cstring>

namespace Zorbe::Table {

namespace {

struct Advice {
  ErrorCode code;
  const char* text;
};

Advice adviceFor(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return {ErrorCode::noSpace, "; free space there, or ask for fewer records"};
    case EFBIG:
      return {ErrorCode::noSpace,
              "; raise the file size limit (ulimit -f), or ask for fewer records"};
    case EROFS:
      return {ErrorCode::denied,
              "; mount the file system for writing, or use another root directory"};
    case EACCES:
    case EPERM:
      return {ErrorCode::denied, "; give this user the right, or use another root directory"};
    case EEXIST:
    case EISDIR:
    case ENOTDIR:
      return {ErrorCode::system,
              "; something else has this name: remove it, or use another root directory"};
    case ENAMETOOLONG:
      return {ErrorCode::system, "; use a shorter name or root directory"};
    case EMFILE:
      return {ErrorCode::system, "; raise the limit of descriptors (ulimit -n)"};
    case ENFILE:
      return {ErrorCode::system, "; raise the host's limit of open files (fs.file-max)"};
    case ENOMEM:
      return {ErrorCode::system, "; raise the limit of address space (ulimit -v)"};
    default:
      return {ErrorCode::system, ""};
  }
}

}  // namespace

void failCall(const Place& place, const char* call, const std::string& path, int error) {
  const Advice advice = adviceFor(error);
  throw Error(advice.code, place.table, "",
              std::string(call) + " " + path + ": " + std::strerror(error) + advice.text);
}

void failCorrupt(const Place& place, const std::string& what) {
  throw CorruptionDetectedException("table '" + place.table + "' in " + place.directory + ": " +
                                    what);
}

}  // namespace Zorbe::Table
