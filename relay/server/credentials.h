// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace Zorbe::Relay {

/// Who the relay is to the server.
struct Credentials {
  std::string user;      // empty: the server's default user
  std::string password;  // empty: none
};

/// The user of the command line, else of ZORBE_RELAY_USER; the password in the first line of
/// `file`, else in ZORBE_RELAY_PASSWORD. Takes both from the environment, which other processes of
/// the same user can read. Throws UsageError for a file that cannot be read or is empty.
Credentials findCredentials(const std::string& user, const std::string& file);

}  // namespace Zorbe::Relay
