// SPDX-License-Identifier: MIT
//
// What takes the place of encryption.cpp where the client library has no TLS. Addresses that ask
// for it are refused, and so nothing of this is used.
#include "server/address.h"
#include "server/encryption.h"

namespace Zorbe::Relay {

struct Encryption::State {};

bool Encryption::isBuilt() {
  return false;
}

Encryption::Encryption(const TlsFiles&, const std::string&) {
  throw UsageError("this build has no TLS");
}

Encryption::~Encryption() = default;

bool Encryption::begin(redisAsyncContext&) {
  return false;
}

std::string Encryption::failure() const {
  return "";
}

}  // namespace Zorbe::Relay
