// SPDX-License-Identifier: MIT
//
// Encrypted connections, with a server that accepts no others over TCP.
#include "server/encryption.h"
#include "support/descriptor.h"
#include "support/outcome.h"
#include "unit/relay/certificates.h"
#include "unit/relay/relay_fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <fstream>

namespace Zorbe::Test {
namespace {

using ::testing::HasSubstr;

// Keeps a port of 127.0.0.1 from others, but for a server that sets SO_REUSEADDR as this does.
class ReservedPort {
 public:
  ReservedPort() {
    const int on = 1;
    EXPECT_EQ(::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(socket_.get(), generic, size), 0);
    EXPECT_EQ(::getsockname(socket_.get(), generic, &size), 0);
    number_ = ::ntohs(address.sin_port);
  }

  uint16_t number() const { return number_; }
  std::string text() const { return std::to_string(number_); }

 private:
  Descriptor socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  uint16_t number_ = 0;
};

struct Watcher : Relay::Connection::Owner {
  void connectionEnded(const std::string& text) override { why = text; }
  std::string why;
};

class RelayTlsTest : public RelayTest {
 protected:
  void SetUp() override {
    if (!Relay::Encryption::isBuilt()) GTEST_SKIP() << "the client library has no TLS";
  }

  /// Its certificate is for these names.
  void startServer(const std::string& names = "DNS:localhost,IP:127.0.0.1") {
    const auto files = certificates().sign("server", names);
    serverOptions = {"--tls-port",
                     port.text(),
                     "--bind",
                     "127.0.0.1",
                     "--tls-cert-file",
                     files.certificate,
                     "--tls-key-file",
                     files.key,
                     "--tls-ca-cert-file",
                     certificates().authority(),
                     "--tls-auth-clients",
                     clients};
    server();
  }

  const Certificates& certificates() {
    if (!certificates_) certificates_ = std::make_unique<Certificates>(rootPath());
    return *certificates_;
  }

  Relay::Address address(const std::string& host = "localhost") {
    return Relay::parseAddress("rediss://" + host + ":" + port.text(),
                               {certificates().authority(), own.certificate, own.key});
  }

  /// Publisher and mirror connect as `address` says.
  void carry(const Relay::Address& address) {
    auto from = publishing();
    from.server.address = address;
    auto to = mirroring();
    to.server.address = address;
    writer = std::make_unique<Writer>("t", at("here"));
    reader = std::make_unique<Reader>("t", at("there"));
    publisher = std::make_unique<Relay::Publisher>(from, handler);
    mirror = std::make_unique<Relay::Mirror>(to, handler);
  }

  /// The publisher logs this, and the server has nothing of it.
  void expectRefusal(const Relay::Address& address, const std::string& why) {
    auto options = publishing();
    options.server.address = address;
    writer = std::make_unique<Writer>("t", at("here"));
    publisher = std::make_unique<Relay::Publisher>(options, handler);
    EXPECT_TRUE(turnUntil([&] { return logs(why); }));
    EXPECT_EQ(server().ask({"DBSIZE"}), "0");
  }

  Outcome ask(const Words& more) {
    Words words{ZORBE_RELAY, "status", "--from", "rediss://localhost:" + port.text()};
    words.insert(words.end(), more.begin(), more.end());
    return runProgram(words);
  }

  const ReservedPort port;
  std::string clients = "no";
  Certificates::Pair own;  // of the relay

 private:
  std::unique_ptr<Certificates> certificates_;
};

TEST_F(RelayTlsTest, CarriesATable) {
  startServer();
  carry(address());
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
  server().kill();
  writer->put(1, {11, 0});
  server().start();
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTlsTest, AnAddressInNumbersIsInTheCertificate) {
  startServer("IP:127.0.0.1");
  carry(address("127.0.0.1"));
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTlsTest, CarriesManyCommandsToASlowServerAndALongAnswer) {
  startServer();
  Watcher watcher;
  Relay::Connection connection({"localhost", port.number(), ""}, watcher, address().tls);
  const auto send = [&](size_t bytes) {
    const std::string value(bytes, 'x');
    connection.send(Relay::Command("SET").add("key").add(value), [](const Relay::Reply&) {});
  };
  send(1);
  EXPECT_TRUE(turnUntil([&] { return connection.pending() == 0; }));
  server().stop();
  for (int i = 0; i < 20; ++i) {
    send(1 << 20);
    for (int turn = 0; turn < 100; ++turn) loop.turn(0);
  }
  server().resume();
  EXPECT_TRUE(turnUntil([&] { return connection.pending() == 0 || !watcher.why.empty(); }));
  EXPECT_EQ(watcher.why, "");
  EXPECT_EQ(connection.answered(), 21u);
  size_t bytes = 0;
  connection.send(Relay::Command("GET").add("key"),
                  [&](const Relay::Reply& reply) { bytes = reply.text().size(); });
  EXPECT_TRUE(turnUntil([&] { return bytes != 0; }));
  EXPECT_EQ(bytes, 1u << 20);
}

TEST_F(RelayTlsTest, AnotherAuthorityIsRefused) {
  startServer();
  auto other = address();
  other.tls->authorities = Certificates(rootPath(), "other").authority();
  expectRefusal(other, "the server's certificate is refused: ");
}

TEST_F(RelayTlsTest, AnotherNameIsRefused) {
  startServer("DNS:elsewhere,IP:127.0.0.1");
  expectRefusal(address(), "the server's certificate is refused: hostname mismatch");
}

TEST_F(RelayTlsTest, AnotherAddressIsRefused) {
  startServer("DNS:localhost,IP:127.0.0.2");
  expectRefusal(address("127.0.0.1"), "the server's certificate is refused: IP address mismatch");
}

TEST_F(RelayTlsTest, AServerMayDemandACertificate) {
  clients = "yes";
  startServer();
  expectRefusal(address(), "the server asks for a certificate");
  own = certificates().sign("relay", "DNS:relay");
  publisher.reset();
  writer.reset();
  carry(address());
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTlsTest, AServerWithoutTlsIsNone) {
  certificates();
  serverOptions = {"--port", port.text(), "--bind", "127.0.0.1"};
  server();
  expectRefusal(address(), "localhost:" + port.text() + ": wrong version number");
}

TEST_F(RelayTlsTest, FilesAreReadAgain) {
  const std::string file = inRoot("current.pem");
  std::filesystem::copy_file(Certificates(rootPath(), "other").authority(), file);
  startServer();
  auto current = address();
  current.tls->authorities = file;
  carry(current);
  writer->put(1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return logs("the server's certificate is refused"); }));
  std::filesystem::remove(file);
  EXPECT_TRUE(turnUntil([&] { return logs("cannot use the authorities in '" + file); }));
  std::filesystem::copy_file(certificates().authority(), file);
  EXPECT_TRUE(becomeEqual());
}

TEST_F(RelayTlsTest, TheCommandHasOptionsForTheFiles) {
  clients = "yes";
  startServer();
  own = certificates().sign("relay", "DNS:relay");
  const Words files{"--ca-file", certificates().authority(), "--cert", own.certificate, "--key",
                    own.key};
  const Outcome outcome = ask(files);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const Outcome without = ask({});
  EXPECT_EQ(without.status, 2);
  EXPECT_THAT(without.err, HasSubstr("the server's certificate is refused"));
}

TEST_F(RelayTlsTest, TheSystemsAuthoritiesAreTheDefault) {
  startServer();
  ASSERT_EQ(::setenv("SSL_CERT_FILE", certificates().authority().c_str(), 1), 0);
  const Outcome outcome = ask({});
  EXPECT_EQ(::unsetenv("SSL_CERT_FILE"), 0);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
}

TEST_F(RelayTlsTest, FilesThatCannotBeUsedAreWrongUse) {
  const auto refusal = [&](const Words& more) {
    const Outcome outcome = ask(more);
    EXPECT_EQ(outcome.status, 2);
    return outcome.err;
  };
  own = certificates().sign("relay", "DNS:relay");
  const std::string foreign = Certificates(rootPath(), "other").sign("foreign", "DNS:relay").key;
  std::ofstream(inRoot("garbage")) << "garbage\n";
  EXPECT_THAT(refusal({"--ca-file", inRoot("missing")}), HasSubstr("No such file"));
  EXPECT_THAT(refusal({"--ca-file", inRoot("garbage")}), HasSubstr("cannot use the authorities"));
  EXPECT_THAT(refusal({"--cert", inRoot("missing"), "--key", own.key}),
              HasSubstr("cannot use the certificate"));
  EXPECT_THAT(refusal({"--cert", own.certificate, "--key", foreign}),
              HasSubstr("cannot use the key"));
  EXPECT_THAT(refusal({"--cert", own.certificate}), HasSubstr("--cert requires --key"));
}

TEST_F(RelayTlsTest, SentinelsSpeakItToo) {
  startServer();
  const ReservedPort sentinelPort;
  const std::string file = inRoot("sentinel.conf");
  std::ofstream(file) << "port 0\ntls-port " << sentinelPort.text()
                      << "\nbind 127.0.0.1\ntls-replication yes\ntls-auth-clients no"
                      << "\ntls-cert-file " << inRoot("server.pem") << "\ntls-key-file "
                      << inRoot("server.key") << "\ntls-ca-cert-file " << certificates().authority()
                      << "\nsentinel monitor m 127.0.0.1 " << port.text() << " 1\n";
  ChildProcess sentinel({ZORBE_REDIS_SERVER, file, "--sentinel"});
  carry(Relay::parseAddress("rediss+sentinel://localhost:" + sentinelPort.text() + "/m",
                            {certificates().authority(), "", ""}));
  writer->put(1, {10, 0});
  EXPECT_TRUE(becomeEqual());
}

}  // namespace
}  // namespace Zorbe::Test
