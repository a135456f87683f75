// SPDX-License-Identifier: MIT
#pragma once

#include <brask/platform.h>
#include <zorbe/export.h>

#include <string>

namespace Zorbe {

/// The incarnation ("fenix") id of a table: a number in the file "fenix" of its root
/// directory, as decimal text and a newline. A reader that finds another id than the one
/// it mapped is looking at another incarnation. 0 means that there is none.
///
/// `dir` is the root directory; empty, it stands for the working directory.
class ZORBE_EXPORT FenixFile {
 public:
  /// The stored id, 0 when the file is missing or holds no number.
  static unsigned read(Brask::Platform::DebugHandler& handler, const std::string& dir);

  /// True when the stored id is `expectedId`. Otherwise logs and throws
  /// Zorbe::CorruptionDetectedException: it never returns false.
  static bool validate(Brask::Platform::DebugHandler& handler, const std::string& dir,
                       unsigned expectedId);

  /// Stores `id`. Throws Brask::RuntimeException when the file cannot be opened. A full disk
  /// is not noticed, and leaves a file without an id: call `validate` afterwards.
  static void write(Brask::Platform::DebugHandler& handler, const std::string& dir, unsigned id);
};

}  // namespace Zorbe
