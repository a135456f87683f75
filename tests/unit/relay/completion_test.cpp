// SPDX-License-Identifier: MIT
//
// What the shell offers for a command line of zorbe-relay.
#include "support/completion.h"
#include "support/fixture.h"
#include "support/record.h"

#include <zorbe/table/in_loop.h>

#include <brask/linux/event_loop.h>

#include <filesystem>
#include <fstream>

namespace Zorbe::Test {
namespace {

class RelayCompletionTest : public ZorbeTest {
 protected:
  static std::string complete(const Words& more) {
    const auto folderOf = [](const char* program) {
      return std::filesystem::path(program).parent_path().string();
    };
    Words words{"zorbe-relay"};
    words.insert(words.end(), more.begin(), more.end());
    return completionsOf(folderOf(ZORBE_RELAY) + ":" + folderOf(ZORBE_COMMAND), words);
  }
};

TEST_F(RelayCompletionTest, OffersSubcommandsAndTheirOptions) {
  EXPECT_EQ(complete({"m"}), "mirror\nmetrics\n");
  EXPECT_EQ(complete({"publish", "--h"}), "--help\n--history\n");
  EXPECT_EQ(complete({"mirror", "--h"}), "--help\n");
  EXPECT_EQ(complete({"mirror", "--c"}), "--ca-file\n--cert\n");
}

TEST_F(RelayCompletionTest, OffersAddressesAndFiles) {
  EXPECT_EQ(complete({"publish", "--to", "rediss"}), "rediss://\nrediss+sentinel://\n");
  std::ofstream(inRoot("password")).put('x');
  EXPECT_EQ(complete({"status", "--password-file", inRoot("pass")}), inRoot("password") + "\n");
  EXPECT_EQ(complete({"status", "--key", inRoot("pass")}), inRoot("password") + "\n");
  EXPECT_EQ(complete({"publish", "--prefix", ""}), "");
}

TEST_F(RelayCompletionTest, OffersTheTablesOfThisHost) {
  Brask::Linux::EventLoop loop;
  const Table::LoopWriter<uint32_t, Record> writer("prices");
  EXPECT_EQ(complete({"publish", "pri"}), "prices\n");
  EXPECT_EQ(complete({"publish", "--root", inRoot("none"), "pri"}), "");
  EXPECT_EQ(complete({"metrics", "pri"}), "");
}

}  // namespace
}  // namespace Zorbe::Test
