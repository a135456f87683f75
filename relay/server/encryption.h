// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

struct redisAsyncContext;

namespace Zorbe::Relay {

/// PEM files that take part in TLS. They are read again for each connection, so that certificates
/// can be renewed while the relay runs.
struct TlsFiles {
  std::string authorities;  // that vouch for servers; empty: those of the system
  std::string certificate;  // of this client, for a server that asks for one; empty: none
  std::string key;          // of the certificate
};

/// TLS of one connection. The server has to show a certificate of its host that a trusted authority
/// has signed: there is no way around that.
class Encryption {
 public:
  /// Whether this build has it: the client library has it from version 1.0 on.
  static bool isBuilt();

  /// Reads the files. `host` is a name, or an address in numbers. Throws UsageError for a file that
  /// cannot be used.
  Encryption(const TlsFiles& files, const std::string& host);
  Encryption(const Encryption&) = delete;
  Encryption& operator=(const Encryption&) = delete;
  ~Encryption();

  /// Begins the handshake, as soon as the connection is established. False: it has failed, and the
  /// context says why.
  bool begin(redisAsyncContext& context);

  /// Why the server, or the relay, has ended the connection before the first answer: what is wrong
  /// with the certificate of one of them, or with the protocol. Empty for another reason.
  std::string failure() const;

 private:
  struct State;

  std::unique_ptr<State> state_;
};

}  // namespace Zorbe::Relay
