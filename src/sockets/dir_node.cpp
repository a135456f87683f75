// SPDX-License-Identifier: MIT
#include "sockets/dir_node.h"

#include <zorbe/exceptions.h>

#include <cerrno>
#include <utility>

#include "foundation/log.h"

namespace Zorbe {

namespace {

// The errors for processes that end during a scan, and for entries that are no processes.
bool isExpected(int error) {
  return error == EACCES || error == ENOENT || error == ENOTDIR;
}

}  // namespace

DirNode::DirNode(Brask::Platform::DebugHandler& debugHandler, std::shared_ptr<DirNode> linkedNode,
                 const std::string& directory)
    : Debuggable(debugHandler), linked_(std::move(linkedNode)), path_(directory) {
  ZORBE_LOG(*handler, kItem, "DirNode::DirNode() path: " << path_);
  stream_ = ::opendir(path_.c_str());
  if (stream_ != nullptr) return;
  const int error = errno;
  const auto words = [&](std::ostream& message) {
    message << "DirNode::DirNode() failed to open " << path_ << " errno: " << Log::reason(error);
  };
  Log::write(*handler, isExpected(error) ? Log::kStep : Log::kNotable, words);
}

DirNode::~DirNode() {
  ZORBE_LOG_NOEXCEPT(*handler, kItem, "DirNode::~DirNode() path: " << path_);
  if (stream_ == nullptr || ::closedir(stream_) == 0) return;
  const int error = errno;
  ZORBE_LOG_NOEXCEPT(
      *handler, kNotable,
      "DirNode::~DirNode() failed to close " << path_ << " errno: " << Log::reason(error));
}

const dirent* DirNode::readEntry() {
  ZORBE_LOG(*handler, kItem, "DirNode::readEntry() path: " << path_);
  if (stream_ == nullptr) {
    ZORBE_LOG(*handler, kStep,
              "DirNode::readEntry() cannot read " << path_ << " because the directory is not open");
    return nullptr;
  }
  errno = 0;
  const dirent* const entry = ::readdir(stream_);
  const int error = errno;
  if (entry == nullptr && error != 0) {
    Log::fail<Brask::RuntimeException>(*handler,
                                       ZORBE_TEXT("DirNode::readEntry() failed to read "
                                                  << path_ << " errno: " << Log::reason(error)));
  }
  return entry;
}

}  // namespace Zorbe
