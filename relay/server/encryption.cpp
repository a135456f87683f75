// SPDX-License-Identifier: MIT
#include "server/encryption.h"

#include <hiredis/async.h>
#include <hiredis/hiredis_ssl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <cstring>
#include <new>

#include "server/address.h"

namespace Zorbe::Relay {

namespace {

struct Free {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
  void operator()(SSL* connection) const { SSL_free(connection); }
};

// The first error that the library has noted.
std::string firstError() {
  const unsigned long error = ERR_peek_error();
  if (ERR_SYSTEM_ERROR(error)) return std::strerror(ERR_GET_REASON(error));
  const char* const reason = ERR_reason_error_string(error);
  return reason == nullptr ? "" : reason;
}

void require(bool isGood, const char* what, const std::string& file) {
  if (!isGood) throw UsageError(std::string("cannot use ") + what + file + "': " + firstError());
}

// There is nobody to ask: the key has to be without one.
int noPassphrase(char*, int, int, void*) {
  return -1;
}

void loadAuthorities(SSL_CTX* context, const std::string& file) {
  if (file.empty()) {
    require(SSL_CTX_set_default_verify_paths(context) == 1, "the authorities of '", "the system");
  } else {
    require(SSL_CTX_load_verify_locations(context, file.c_str(), nullptr) == 1,
            "the authorities in '", file);
  }
}

void loadCertificate(SSL_CTX* context, const TlsFiles& files) {
  if (files.certificate.empty()) return;
  SSL_CTX_set_default_passwd_cb(context, noPassphrase);
  require(SSL_CTX_use_certificate_chain_file(context, files.certificate.c_str()) == 1,
          "the certificate in '", files.certificate);
  require(SSL_CTX_use_PrivateKey_file(context, files.key.c_str(), SSL_FILETYPE_PEM) == 1,
          "the key in '", files.key);
}

std::unique_ptr<SSL_CTX, Free> makeContext(const TlsFiles& files) {
  std::unique_ptr<SSL_CTX, Free> context(SSL_CTX_new(TLS_client_method()));
  if (!context) throw std::bad_alloc();
  SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  loadAuthorities(context.get(), files.authorities);
  loadCertificate(context.get(), files);
  return context;
}

// The client library compares no names.
void demandHost(SSL* connection, const std::string& host) {
  X509_VERIFY_PARAM* const rules = SSL_get0_param(connection);
  X509_VERIFY_PARAM_set_hostflags(rules, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  if (X509_VERIFY_PARAM_set1_ip_asc(rules, host.c_str()) == 1) return;
  if (SSL_set1_host(connection, host.c_str()) != 1 ||
      SSL_set_tlsext_host_name(connection, host.c_str()) != 1) {
    throw UsageError("no certificate can name the host '" + host + "'");
  }
}

}  // namespace

struct Encryption::State {
  // The server asks for a certificate, and there is none.
  static int lack(SSL*, void* self) {
    static_cast<State*>(self)->lacksCertificate = true;
    return 1;
  }

  bool lacksCertificate = false;
  std::unique_ptr<SSL, Free> connection;
};

bool Encryption::isBuilt() {
  return true;
}

Encryption::Encryption(const TlsFiles& files, const std::string& host)
    : state_(std::make_unique<State>()) {
  ERR_clear_error();
  state_->connection.reset(SSL_new(makeContext(files).get()));
  if (!state_->connection) throw std::bad_alloc();
  demandHost(state_->connection.get(), host);
  if (files.certificate.empty())
    SSL_set_cert_cb(state_->connection.get(), State::lack, state_.get());
  ERR_clear_error();
}

Encryption::~Encryption() = default;

// Both sides own the connection: it says after the end, too, what was wrong.
bool Encryption::begin(redisAsyncContext& context) {
  SSL* const connection = state_->connection.get();
  SSL_up_ref(connection);
  if (redisInitiateSSL(&context.c, connection) == REDIS_OK) return true;
  SSL_free(connection);
  return false;
}

std::string Encryption::failure() const {
  const long result = SSL_get_verify_result(state_->connection.get());
  if (result != X509_V_OK) {
    return std::string("the server's certificate is refused: ") +
           X509_verify_cert_error_string(result);
  }
  if (state_->lacksCertificate) {
    return "the server asks for a certificate: name one with --cert and --key";
  }
  return firstError();
}

}  // namespace Zorbe::Relay
