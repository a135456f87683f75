// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/mounter.h>

#include <memory>
#include <string>

namespace Quotes {

/// The watch on a table's directory, and what is to be done when the directory has been removed
/// and cannot be made again: a file has its name, its parent is gone, the disk has no inode left.
/// The library's watchers then throw out of the loop:
///
///     try {
///       loop.run();
///     } catch (const Brask::Exception&) {  // logged
///       watch.renew();
///     }
class DirectoryWatch : public Brask::Platform::TimeoutHandler {
 public:
  /// Makes the directory and watches it for `client`, which has to outlive this object like the
  /// handler. Throws what the library throws.
  DirectoryWatch(Brask::Platform::DebugHandler& debugHandler, std::string tableName,
                 Zorbe::MounterBase& client);

  /// Drops the watches and tries to set them again, from the loop, until the directory can be
  /// made. Then the client's rootChanged is called.
  void renew();

  void timeout() override;

 private:
  Brask::Platform::DebugHandler& handler_;
  std::string tableName_;
  Zorbe::MounterBase& client_;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
  std::unique_ptr<Zorbe::MounterSm> mounter_;
};

}  // namespace Quotes
