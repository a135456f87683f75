// SPDX-License-Identifier: MIT
//
// Passwords that change while a relay runs.
#include "server/credentials.h"
#include "support/outcome.h"
#include "unit/relay/relay_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

namespace Zorbe::Test {
namespace {

using ::testing::HasSubstr;

class RelayCredentialsTest : public RelayTest {
 protected:
  RelayCredentialsTest() { write("first"); }

  const std::string file = inRoot("password");

  void write(const std::string& password) const { std::ofstream(file) << password << "\n"; }

  /// The server's only password of the user "relay" from now on; its connections end.
  void change(const std::string& password) {
    EXPECT_EQ(
        server().ask({"ACL", "SETUSER", "relay", "on", "resetpass", ">" + password, "~*", "+@all"}),
        "OK");
    server().ask({"CLIENT", "KILL", "USER", "relay"});
  }

  /// A writer here, and a publisher that is connected as the user "relay".
  void publishAsUser() {
    change("first");
    writer = std::make_unique<Writer>("t", at("here"));
    auto options = publishing();
    options.server.credentials = Relay::findCredentials("relay", file);
    publisher = std::make_unique<Relay::Publisher>(options, handler);
    EXPECT_TRUE(turnUntil([&] { return serves(0); }));
  }

  /// The server has so many records of the table, from this publisher or one before.
  bool serves(int records) {
    return server().ask({"EXISTS", "zorbe:{t}:about"}) == "1" &&
           server().ask({"HLEN", "zorbe:{t}:records"}) == std::to_string(records);
  }

  long count(const std::string& text) const {
    const auto& messages = handler.messages();
    return std::count_if(messages.begin(), messages.end(), [&](const Message& message) {
      return message.text.find(text) != std::string::npos;
    });
  }

  /// Attempts that the server has refused.
  int refusals() {
    const std::string log = server().ask({"ACL", "LOG", "1"});
    const size_t at = log.find("count ");
    return at == std::string::npos ? 0 : std::stoi(log.substr(at + 6));
  }
};

TEST_F(RelayCredentialsTest, TheFileIsReadAtEachAttempt) {
  publishAsUser();
  change("second");
  writer->put(1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return logs("WRONGPASS"); }));
  write("second");
  EXPECT_TRUE(turnUntil([&] { return serves(1); }));
}

TEST_F(RelayCredentialsTest, AWrongPasswordIsTriedAgainAndLoggedOnce) {
  publishAsUser();
  change("second");
  writer->put(1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return refusals() >= 2; }));
  EXPECT_EQ(count("WRONGPASS"), 1);
  std::filesystem::remove(file);
  EXPECT_TRUE(turnUntil([&] { return logs("cannot read a password from"); }));
  write("wrong");
  EXPECT_TRUE(turnUntil([&] { return count("WRONGPASS") == 2; }));
  write("second");
  EXPECT_TRUE(turnUntil([&] { return serves(1); }));
  EXPECT_EQ(publisher->end(), "");
}

TEST_F(RelayCredentialsTest, AnEmptyFileIsNoPassword) {
  publishAsUser();
  std::ofstream(file, std::ios::trunc).close();
  server().ask({"CLIENT", "KILL", "USER", "relay"});
  EXPECT_TRUE(turnUntil([&] { return logs("'" + file + "': it is empty"); }));
  write("first");
  writer->put(1, {10, 0});
  EXPECT_TRUE(turnUntil([&] { return serves(1); }));
}

TEST_F(RelayCredentialsTest, APipeIsReadOnce) {
  std::filesystem::remove(file);
  ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
  const Descriptor pipe(::open(file.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::write(pipe.get(), "first\n", 6), 6);
  const auto credentials = Relay::findCredentials("relay", file);
  EXPECT_EQ(credentials.currentPassword(), "first");
  EXPECT_EQ(credentials.currentPassword(), "first");
}

TEST_F(RelayCredentialsTest, AFileThatCannotBeReadIsWrongUse) {
  const auto ask = [&](const std::string& path) {
    return runProgram(
        {ZORBE_RELAY, "status", "--from", "redis://127.0.0.1:1", "--password-file", path});
  };
  const Outcome missing = ask(inRoot("missing"));
  EXPECT_EQ(missing.status, 2);
  EXPECT_THAT(missing.err, HasSubstr("No such file"));
  write("");
  EXPECT_THAT(ask(file).err, HasSubstr("its first line is empty"));
}

}  // namespace
}  // namespace Zorbe::Test
