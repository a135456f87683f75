// SPDX-License-Identifier: MIT
//
// What the library throws. Everything derives from Brask::Exception, whose
// `what()` is the text alone and whose `msg()` is the class name around it.
// Thrown by value; catch by reference.
//
// As a rule the text was logged at level 0 before. Not logged are the texts of
// Util::socket (no way back to the own namespace), Util::readOwnerPid ("Couldn't open
// /proc"), WriterKickSm::doEnableListen ("no socket") and ReaderKickSm::sendSequence (a
// falling sequence), and an exception without memory for its message. Where the log
// has more detail than the text, the text is the beginning of that message.
#pragma once

#include <brask/exception.h>
#include <zorbe/export.h>

#include <cstdint>
#include <string>

namespace Brask {

/// An operation could not continue: a system call failed, or calls came in an order
/// that cannot work.
class ZORBE_EXPORT RuntimeException : public Exception {
 public:
  /// `text` is what `what()` returns.
  explicit RuntimeException(const std::string& text) : Exception(text, true) {}
  const char* name() const override { return "Brask::RuntimeException"; }
};

/// A root directory could not be resolved or created.
class ZORBE_EXPORT InvalidInitializeException : public Exception {
 public:
  /// `text` is what `what()` returns.
  explicit InvalidInitializeException(const std::string& text) : Exception(text, true) {}
  const char* name() const override { return "Brask::InvalidInitializeException"; }
};

}  // namespace Brask

namespace Zorbe {

/// The writer could not be reached, for a reason other than that there is none.
class ZORBE_EXPORT ConnectionException : public Brask::Exception {
 public:
  /// `text` is what `what()` returns.
  explicit ConnectionException(const std::string& text);
  /// Copyable, as thrown objects must be.
  ConnectionException(const ConnectionException&) = default;
  ConnectionException& operator=(const ConnectionException&) = default;  ///< as above
  ~ConnectionException() override;
  const char* name() const override;
};

/// The table is not the one that was expected, or contradicts itself.
class ZORBE_EXPORT CorruptionDetectedException : public Brask::Exception {
 public:
  /// `text` is what `what()` returns.
  explicit CorruptionDetectedException(const std::string& text);
  /// Copyable, as thrown objects must be.
  CorruptionDetectedException(const CorruptionDetectedException&) = default;
  /// As above.
  CorruptionDetectedException& operator=(const CorruptionDetectedException&) = default;
  ~CorruptionDetectedException() override;
  const char* name() const override;
};

/// Another live process is the writer of this table.
class ZORBE_EXPORT DuplicateWriterException : public Brask::Exception {
 public:
  /// `text` is what `what()` returns, the others the fields of like meaning.
  DuplicateWriterException(const std::string& text, uint32_t ownerPid, const std::string& ownerPath,
                           const std::string& lastOwnerNote);
  /// Copyable, as thrown objects must be.
  DuplicateWriterException(const DuplicateWriterException&) = default;
  DuplicateWriterException& operator=(const DuplicateWriterException&) = default;  ///< as above
  ~DuplicateWriterException() override;
  const char* name() const override;

  uint32_t pid;           ///< the process that seems to hold the lock (Util::readOwnerPid), or 0
  std::string owner;      ///< that process's executable, empty when it was not found
  std::string lastOwner;  ///< the root directory's "last-owner" file as it was read
};

}  // namespace Zorbe
