// SPDX-License-Identifier: MIT
#include "server/credentials.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "server/address.h"

namespace Zorbe::Relay {

namespace {

std::string takeFromEnvironment(const char* name) {
  const char* const value = std::getenv(name);
  std::string result = value == nullptr ? "" : value;
  static_cast<void>(::unsetenv(name));
  return result;
}

std::string firstLine(const std::string& file) {
  errno = 0;
  std::ifstream in(file);
  std::string line;
  if (!std::getline(in, line)) {
    const int error = errno;
    const std::string why = error == 0 ? "it is empty" : std::strerror(error);
    throw UsageError("cannot read a password from '" + file + "': " + why);
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty())
    throw UsageError("cannot read a password from '" + file + "': its first line is empty");
  return line;
}

}  // namespace

std::string Credentials::currentPassword() const {
  return passwordFile.empty() ? password : firstLine(passwordFile);
}

Credentials findCredentials(const std::string& user, const std::string& file) {
  Credentials result;
  result.user = takeFromEnvironment("ZORBE_RELAY_USER");
  result.password = takeFromEnvironment("ZORBE_RELAY_PASSWORD");
  if (!user.empty()) result.user = user;
  if (!file.empty()) result.password = firstLine(file);
  if (!result.user.empty() && result.password.empty()) {
    throw UsageError("the user '" + result.user +
                     "' needs a password: name a file with "
                     "--password-file, or set ZORBE_RELAY_PASSWORD");
  }
  // A pipe can be read once.
  if (std::filesystem::is_regular_file(file)) result.passwordFile = file;
  return result;
}

}  // namespace Zorbe::Relay
