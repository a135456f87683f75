// SPDX-License-Identifier: MIT
//
// Where a server is, as the command line says it:
//   redis://host:port/database      port 6379 and database 0 when left out; [::1] in brackets
//   unix:///path?db=database
//   redis+sentinel://host:port,host:port/master/database      port 26379 when left out
//   rediss://, rediss+sentinel://      the same with TLS, to the sentinels and to the server
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "server/encryption.h"

namespace Zorbe::Relay {

/// The command line asks for what cannot be done. `what()` says what to do instead.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One server: a host and a port, or the path of a local socket.
struct Endpoint {
  std::string host;
  uint16_t port = 0;
  std::string path;  // not empty: a local socket
};

/// As it is written in messages: host:port, or the path.
std::string print(const Endpoint& endpoint);

struct Address {
  std::vector<Endpoint> endpoints;  // the server, or all sentinels
  std::string master;               // not empty: its name, for which the sentinels are asked
  unsigned database = 0;
  std::optional<TlsFiles> tls;  // has a value: connections are encrypted
};

/// `files` are those of an address with TLS. Throws UsageError: for what is not understood, for
/// files of an address without TLS, for TLS in a build without it, and for a password in the text,
/// where every user of the host can see it.
Address parseAddress(const std::string& text, const TlsFiles& files = {});

}  // namespace Zorbe::Relay
