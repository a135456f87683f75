// SPDX-License-Identifier: MIT
//
// Watching a table's root directory: what changes in it, and that it exists.
//
// Everything runs on the thread of the loop that the controls come from; nothing here may
// be shared between threads or carried over a fork(2).
#pragma once

#include <brask/platform.h>
#include <zorbe/debuggable.h>
#include <zorbe/export.h>
#include <zorbe/root_path.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Zorbe {

/// Implemented by the client of a MounterSm.
class ZORBE_EXPORT MounterBase {
 public:
  virtual ~MounterBase() = default;

  /// Something has happened to the root directory. `what` is the name of the entry that
  /// changed, the text of an error (events may have been lost: look at everything again), or
  /// "watch deleted" when the directory was removed and has been created again; one removal may
  /// be reported twice. Must not delete the MounterSm that calls it.
  virtual void rootChanged(const std::string& what) = 0;
};

/// What both watchers have in common: one inotify watch, ended with the object.
class ZORBE_EXPORT MounterSmBase : public Brask::Platform::InotifyHandler,
                                   public Brask::Debuggable {
 public:
  /// Obtains the control; watches nothing.
  explicit MounterSmBase(Brask::Platform::DebugHandler& debugHandler);

  MounterSmBase(const MounterSmBase&) = delete;
  MounterSmBase& operator=(const MounterSmBase&) = delete;

  ~MounterSmBase() override;

  void inotifyError(const std::string& what) override = 0;
  void inotifyDeleted() override = 0;
  void inotifyChanged(const std::string& what) override = 0;

 protected:
  bool watching = false;                                     ///< a watch was added
  std::unique_ptr<Brask::Platform::InotifyControl> control;  ///< of the one watch
};

/// Watches the parent of a path for the path's last component: a directory that does not
/// exist cannot be watched itself.
class ZORBE_EXPORT ParentMounterSm : public MounterSmBase {
 public:
  /// IN_MOVED_FROM, IN_MOVED_TO and IN_DELETE of inotify(7).
  static const uint32_t PARENT_MASK;

  /// Watches the parent of `path` for `childHandler`, which has to outlive this object. Throws
  /// Brask::RuntimeException when `path` has no parent and child ("", "/", or no "/" at all).
  ParentMounterSm(Brask::Platform::DebugHandler& debugHandler,
                  Brask::Platform::InotifyHandler* childHandler, const std::string& path);
  ~ParentMounterSm() override;

  /// The parent cannot be watched, or events were lost: passed on to the child.
  void inotifyError(const std::string& what) override;

  /// The parent itself was removed or moved. Throws Brask::RuntimeException, which leaves the loop.
  void inotifyDeleted() override;

  /// An entry of the parent was deleted or moved. When it is the child: calls the child's
  /// inotifyDeleted, and then watches the parent again.
  void inotifyChanged(const std::string& what) override;

 protected:
  std::string parentPath;                  ///< up to the slash before the child's name
  std::string childName;                   ///< without slashes
  Brask::Platform::InotifyHandler* child;  ///< not owned
};

/// Watches the root directory of a table for its client, and creates it again when it was
/// removed.
///
/// When the directory cannot be created again (a file has its name, no permission, no inode),
/// an exception leaves the loop: Brask::InvalidInitializeException of `inotifyDeleted`, or
/// Brask::RuntimeException when the parent was removed, too. The root directory is not watched
/// any more then. Catch them around the loop, destroy this object, and make a new one from a
/// timer until that succeeds.
///
///     class Table : Zorbe::MounterBase {
///       void rootChanged(const std::string& what) override { ... }
///       Zorbe::MounterSm mounter{handler, "quotes", this};
///     };
class ZORBE_EXPORT MounterSm : public MounterSmBase {
 public:
  /// IN_CLOSE_WRITE and IN_DELETE of inotify(7): files written and closed, or deleted.
  static const uint32_t MOUNTER_DEFAULT_MASK;

  /// Creates the root directory of the table `tableName` and watches it for `mounterClient`,
  /// which has to outlive this object. What RootPath throws passes through.
  MounterSm(Brask::Platform::DebugHandler& debugHandler, const std::string& tableName,
            MounterBase* mounterClient);

  /// Ends the watches. The directory stays.
  ~MounterSm() override;

  /// The watch cannot be set, or events were lost: passed on to the client.
  void inotifyError(const std::string& what) override;

  /// The root directory was removed: resolves its name again from the environment, creates and
  /// watches it, and calls the client. What RootPath throws passes through.
  void inotifyDeleted() override;

  /// An entry of the root directory has changed: passed on to the client.
  void inotifyChanged(const std::string& what) override;

 protected:
  std::string name;        ///< of the table
  MounterBase* client;     ///< not owned
  RootPath rootPath;       ///< replaced with each deletion
  ParentMounterSm parent;  ///< watches the directory above
};

}  // namespace Zorbe
