// SPDX-License-Identifier: MIT
#pragma once

#include <brask/exception.h>

#include <string>

#pragma GCC visibility push(default)

namespace Zorbe::Table {

/// What kind of failure an Error reports: what a program may want to branch on.
enum class ErrorCode {
  full,      ///< the table holds `maxRecords` records, or all that its format allows
  noSpace,   ///< the file system, a quota or RLIMIT_FSIZE leaves no room
  tooLarge,  ///< the key does not fit into its type
  schema,    ///< the table has another description than this program
  version,   ///< the files are of another version or byte order
  denied,    ///< the directory or a file may not be written, read or trusted
  usage,     ///< the options or the description contradict themselves
  closed,    ///< the object belongs to the parent process, or was closed
  system,    ///< any other failing system call
};

/// Thrown by value. The text names the table, what failed, and what to do about it.
/// Unless a function says otherwise, the table is as it was before the call.
class Error : public Brask::Exception {
 public:
  /// `table` is the table's name; `key` a printable key, empty where there is none; `text`
  /// what failed and what to do. `what()` is all of it.
  Error(ErrorCode code, const std::string& table, const std::string& key, const std::string& text);
  ~Error() override;
  const char* name() const override;

  /// What kind of failure it is.
  ErrorCode code() const { return code_; }

  /// The table's name, as the constructor of writer or reader was given it.
  const std::string& table() const { return table_; }

  /// The key in printable form, empty where there is none.
  const std::string& key() const { return key_; }

  /// What failed and what to do, without table and key.
  const std::string& detail() const { return detail_; }

 private:
  ErrorCode code_;
  std::string table_;
  std::string key_;
  std::string detail_;
};

}  // namespace Zorbe::Table

#pragma GCC visibility pop
