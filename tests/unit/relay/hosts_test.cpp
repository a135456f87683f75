// SPDX-License-Identifier: MIT
//
// docs/hosts.md and its example are true.
#include "support/outcome.h"
#include "unit/relay/relay_fixture.h"

#include <fstream>
#include <sstream>

namespace Zorbe::Test {
namespace {

using ::testing::HasSubstr;

class RelayHostsTest : public RelayTest {
 protected:
  /// Makes the users of the document, as it says; passwords are secret1 to secret3.
  void makeUsers() {
    std::ifstream document(ZORBE_HOSTS_GUIDE);
    int users = 0;
    for (std::string line; std::getline(document, line);) {
      if (line.rfind("    ACL SETUSER ", 0) != 0) continue;
      std::istringstream stream(line);
      Words words;
      for (std::string word; stream >> word;) words.push_back(word);
      EXPECT_EQ(server().ask(words), "OK") << line;
      ++users;
    }
    ASSERT_EQ(users, 3);
  }

  std::string deniedCommands() { return server().ask({"ACL", "LOG"}); }

  Outcome ask(const std::string& query, const std::string& user, const std::string& password) {
    std::ofstream(inRoot("password")) << password << "\n";
    return runProgram({ZORBE_RELAY, query, "--from", server().address(), "--user", user,
                       "--password-file", inRoot("password"), "--root", inRoot("there")});
  }
};

TEST_F(RelayHostsTest, TheRulesOfTheDocumentSuffice) {
  makeUsers();
  auto publishOptions = publishing();
  publishOptions.server.credentials = {"publisher", "secret1"};
  auto mirrorOptions = mirroring();
  mirrorOptions.server.credentials = {"mirror", "secret2"};
  // A first claim, and one that finds a stream to shorten and keys of other types.
  publishOptions.history = 1000;
  writer = std::make_unique<Writer>("t", at("here"));
  reader = std::make_unique<Reader>("t", at("there"));
  for (uint32_t key = 0; key < 5000; ++key) writer->put(key, {key, 0});
  for (int i = 0; i < 2; ++i) {
    publisher = std::make_unique<Relay::Publisher>(publishOptions, handler);
    if (!mirror) mirror = std::make_unique<Relay::Mirror>(mirrorOptions, handler);
    EXPECT_TRUE(becomeEqual());
    EXPECT_TRUE(writer->erase(static_cast<uint32_t>(i)));
    EXPECT_TRUE(becomeEqual());
    publisher.reset();
  }
  EXPECT_EQ(server().ask({"DEL", "zorbe:{t}:changes"}), "1");
  EXPECT_EQ(server().ask({"SET", "zorbe:{t}:changes", "x"}), "OK");
  publisher = std::make_unique<Relay::Publisher>(publishOptions, handler);
  writer->put(1, {70, 0});
  EXPECT_TRUE(becomeEqual());
  EXPECT_TRUE(turnUntil([&] {
    return !server().ask({"HGET", "zorbe:{t}:about", "heartbeat"}).empty();
  }));
  const Outcome status = ask("status", "status", "secret3");
  EXPECT_EQ(status.status, 0) << status.err;
  EXPECT_EQ(ask("metrics", "status", "secret3").status, 0);
  EXPECT_EQ(deniedCommands(), "");
}

TEST_F(RelayHostsTest, AMirrorsUserCanChangeNothing) {
  makeUsers();
  auto options = publishing();
  options.server.credentials = {"mirror", "secret2"};
  writer = std::make_unique<Writer>("t", at("here"));
  publisher = std::make_unique<Relay::Publisher>(options, handler);
  EXPECT_TRUE(turnUntil([&] { return logs("NOPERM"); }));
  EXPECT_EQ(server().ask({"DBSIZE"}), "0");
  for (const Words& words :
       {Words{"hset", "zorbe:{t}:records", "a", "b"}, Words{"unlink", "zorbe:{t}:records"},
        Words{"flushall"}, Words{"hget", "other", "a"}}) {
    Words dryRun{"ACL", "DRYRUN", "mirror"};
    dryRun.insert(dryRun.end(), words.begin(), words.end());
    EXPECT_NE(server().ask(dryRun), "OK") << words[0];
  }
}

TEST_F(RelayHostsTest, AWrongPasswordIsReported) {
  makeUsers();
  const Outcome outcome = ask("status", "status", "wrong");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_THAT(outcome.err, HasSubstr("WRONGPASS"));
}

TEST_F(RelayHostsTest, TheExampleShowsTheCutAndTheRepair) {
  const Outcome outcome = runProgram({ZORBE_TWO_HOSTS, ZORBE_BUILD});
  EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
  const size_t cut = outcome.out.find("# the link is cut");
  const size_t repair = outcome.out.find("# the link is repaired");
  ASSERT_NE(cut, std::string::npos);
  ASSERT_NE(repair, std::string::npos);
  const std::string before = outcome.out.substr(cut, repair - cut);
  EXPECT_THAT(before, HasSubstr("mirrored, connection lost since "));
  EXPECT_THAT(before, HasSubstr("\nABC,99.5\n"));
  EXPECT_THAT(outcome.out.substr(repair), HasSubstr("\nABC,101\n"));
}

}  // namespace
}  // namespace Zorbe::Test
