// SPDX-License-Identifier: MIT
#pragma once

#include <dirent.h>
#include <zorbe/debuggable.h>

#include <memory>
#include <string>

namespace Zorbe {

/// One directory, read entry by entry. A local variable of one scan.
class DirNode : public Brask::Debuggable {
 public:
  /// Opens `directory`. A failure is logged and leaves a node without entries.
  DirNode(Brask::Platform::DebugHandler& debugHandler, std::shared_ptr<DirNode> linkedNode,
          const std::string& directory);

  DirNode(const DirNode&) = delete;
  DirNode& operator=(const DirNode&) = delete;
  ~DirNode() override;

  bool isOpen() const { return stream_ != nullptr; }

  /// The next entry, valid until the next call, or null at the end. Throws
  /// Brask::RuntimeException when the directory cannot be read.
  const dirent* readEntry();

 private:
  DIR* stream_ = nullptr;
  std::shared_ptr<DirNode> linked_;
  std::string path_;
};

}  // namespace Zorbe
