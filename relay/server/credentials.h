// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Zorbe::Relay {

/// Who the relay is to the server.
struct Credentials {
  std::string user;            // empty: the server's default user
  std::string password;        // empty: none
  std::string passwordFile{};  // not empty: its first line takes the place of `password`

  /// Reads the file each time, so that the password can change while the relay runs. Throws
  /// UsageError when it cannot be read or is empty.
  std::string currentPassword() const;
};

/// The user of the command line, else of ZORBE_RELAY_USER; the password in the first line of
/// `file`, else in ZORBE_RELAY_PASSWORD. Takes both from the environment, which other processes of
/// the same user can read. A file that is a pipe is read once. Throws UsageError for one that
/// cannot be read or is empty.
Credentials findCredentials(const std::string& user, const std::string& file);

}  // namespace Zorbe::Relay
