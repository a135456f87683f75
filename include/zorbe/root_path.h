// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/debuggable.h>
#include <zorbe/export.h>

#include <iosfwd>
#include <string>

namespace Zorbe {

/// The directory in which one table keeps its files, resolved by the constructor from
/// the environment so that writer and readers started alike agree on it:
///
///     $SHMEM_ROOT                          when set, even to nothing; else
///     /var/shmem/zorbes$NSPATH             when NSPATH is set; else
///     zorbes (below the working directory) when Q9_CHROOT is set; else
///     /var/shmem/zorbes
///
/// followed by "/" and the table's name. Nothing is normalised: the writer lock's name
/// follows from the path as it is spelled, so that "/base/t", "/base//t", "/base/./t" and
/// a symbolic link to it are one directory with four locks. Start writer and readers of a
/// table with the same values.
///
///     Zorbe::RootPath root(handler, "quotes", true);
///     map(root.fullPath("slots"));
///
/// A value: the state machines keep copies. Immutable after construction. Where a directory
/// that was removed is created again (Util::acquireWriterLock, MounterSm), the name is
/// resolved again from the environment of that moment.
class ZORBE_EXPORT RootPath : public Brask::Debuggable {
 public:
  /// Resolves the directory of the table `tableName`, which may be empty and may
  /// contain "/". With `createDirectory` it is created, missing parents too, and
  /// made world-writable (mode 0777 regardless of the umask, through a symbolic link as
  /// well); without, the disk is not touched.
  ///
  /// Throws Brask::InvalidInitializeException when the working directory is
  /// unknown or the directory cannot be created. Under Q9_CHROOT a directory that
  /// cannot be created is reported on standard error instead, and leaves
  /// `initialized` false.
  RootPath(Brask::Platform::DebugHandler& debugHandler, const std::string& tableName,
           bool createDirectory);

  /// A copy names the same directory.
  RootPath(const RootPath&) = default;
  RootPath& operator=(const RootPath&) = default;  ///< as above
  ~RootPath() override;

  /// True when the path can be examined and its mode has the directory bit.
  bool exists() const;

  /// The path of `file` inside the directory.
  std::string fullPath(const std::string& file) const;

  /// Unlinks `file` inside the directory. A missing file counts as removed;
  /// any other failure is logged.
  void removeFile(const std::string& file);

  /// Removes the directory, which has to be empty. A missing one counts as
  /// removed; any other failure is logged.
  void cleanup();

  std::string path;          ///< absolute
  std::string name;          ///< as given to the constructor
  bool create;               ///< as given to the constructor
  bool initialized = false;  ///< the constructor ran to its end
};

/// Writes the path and nothing else.
ZORBE_EXPORT std::ostream& operator<<(std::ostream& out, const RootPath& rootPath);

}  // namespace Zorbe
