// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <unistd.h>
#include <zorbe/mounter.h>
#include <zorbe/util.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "process/process_fixture.h"

namespace Zorbe::Test {
namespace {

namespace fs = std::filesystem;

using testing::Contains;
using testing::HasSubstr;

/// Records its callbacks.
class Client : public MounterBase {
 public:
  void rootChanged(const std::string& what) override { reports.push_back(what); }
  bool wasTold(const std::string& what) const {
    return std::find(reports.begin(), reports.end(), what) != reports.end();
  }

  std::vector<std::string> reports;
};

unsigned inotifyDescriptors() {
  unsigned count = 0;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;
    if (fs::read_symlink(entry, ignored) == "anon_inode:inotify") ++count;
  }
  return count;
}

void put(const std::string& path, const std::string& text = "") {
  std::ofstream(path) << text;
}

class Mounting : public ProcessTest {
 protected:
  bool until(const std::function<bool()>& done) { return turnUntil(loop, done); }

  // A file written from now on in the root directory is reported: the watch works.
  void expectWatched(const Client& client, const std::string& root) {
    const std::string name = "probe" + std::to_string(++probes_);
    put(root + "/" + name);
    EXPECT_TRUE(until([&] { return client.wasTold(name); })) << name;
  }

  Brask::Linux::EventLoop loop;

 private:
  unsigned probes_ = 0;
};

TEST_F(Mounting, TwoHundredTablesShareOneInotifyDescriptor) {
  std::vector<Client> clients(200);
  std::vector<std::unique_ptr<MounterSm>> mounters;
  for (size_t i = 0; i < clients.size(); ++i) {
    mounters.push_back(
        std::make_unique<MounterSm>(handler, "table" + std::to_string(i), &clients[i]));
  }
  EXPECT_EQ(inotifyDescriptors(), 1u);
  for (size_t i = 0; i < clients.size(); ++i) {
    expectWatched(clients[i], inRoot("table" + std::to_string(i)));
  }
}

TEST_F(Mounting, AnOverflowIsReportedAndARescanRecovers) {
  handler.expectFailures();
  uint64_t limit = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> limit;
  if (limit == 0 || limit > 200000) GTEST_SKIP() << "fs.inotify.max_queued_events: " << limit;
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  // A process that looks at this one's descriptors can hold a file open until after the next one
  // was closed, and the kernel merges equal events that meet: only removals are sure to count.
  for (uint64_t i = 0; i <= limit; ++i) {
    const std::string path = inRoot("quotes/") + (i % 2 == 0 ? "even" : "odd");
    put(path);
    fs::remove(path);
  }
  put(inRoot("quotes/last"), "unheard");
  const auto lost = Contains(HasSubstr("inotify queue overflow"));
  EXPECT_TRUE(until([&] { return testing::Value(client.reports, lost); }));
  EXPECT_FALSE(client.wasTold("last"));
  EXPECT_EQ(Util::fileRead(handler, inRoot("quotes/last"), true), "unheard");
  expectWatched(client, inRoot("quotes"));
}

TEST_F(Mounting, ARootRenamedAwayIsMadeAgain) {
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  fs::rename(inRoot("quotes"), inRoot("elsewhere"));
  EXPECT_TRUE(until([&] { return client.wasTold("watch deleted"); }));
  put(inRoot("elsewhere/unwatched"));
  expectWatched(client, inRoot("quotes"));
  EXPECT_FALSE(client.wasTold("unwatched"));
}

TEST_F(Mounting, ADirectoryRenamedToTheNameOfARenamedRootIsWatched) {
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  fs::create_directory(inRoot("another"));
  put(inRoot("another/mark"));
  fs::rename(inRoot("quotes"), inRoot("elsewhere"));
  fs::rename(inRoot("another"), inRoot("quotes"));
  EXPECT_TRUE(until([&] { return client.wasTold("watch deleted"); }));
  EXPECT_TRUE(fs::exists(inRoot("quotes/mark")));
  expectWatched(client, inRoot("quotes"));
}

TEST_F(Mounting, ADirectoryRenamedOverTheRootIsWatched) {
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  fs::create_directory(inRoot("another"));
  fs::rename(inRoot("another"), inRoot("quotes"));
  EXPECT_TRUE(until([&] { return client.wasTold("watch deleted"); }));
  expectWatched(client, inRoot("quotes"));
}

// The whole tree vanishes, parent of the root included, while the loop brings it back.
TEST_F(Mounting, ATreeThatIsRemovedAgainAndAgainComesBackAndIsWatched) {
  handler.allowFailures();
  const std::string tree = inRoot("tree");
  ASSERT_EQ(::setenv("SHMEM_ROOT", tree.c_str(), 1), 0);
  const Child remover = start("remover", [&](Channel& parent) {
    for (;;) {
      if (parent.receive() == "leave") return;
      std::error_code ignored;
      fs::remove_all(tree, ignored);
      parent.send("removed");
    }
  });
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  for (int i = 0; i < 200; ++i) {
    remover->send("remove");
    ASSERT_TRUE(until([&] {
      return fs::exists(tree + "/quotes") && client.wasTold("watch deleted");
    })) << i;
    remover->await("removed");
    ASSERT_TRUE(until([&] { return fs::exists(tree + "/quotes"); })) << i;
    while (loop.turn(0)) continue;
    client.reports.clear();
    expectWatched(client, tree + "/quotes");
  }
  leave(remover);
}

// The remover does not wait for the tree to be watched again before it starts over.
TEST_F(Mounting, ATreeThatIsRemovedWhileItIsBeingMadeComesBackAndIsWatched) {
  handler.allowFailures();
  handler.setMaxLevel(0);
  const std::string tree = inRoot("tree");
  ASSERT_EQ(::setenv("SHMEM_ROOT", tree.c_str(), 1), 0);
  const Child remover = start("remover", [&](Channel& parent) {
    parent.await("begin");
    for (int removals = 0; removals < 100;) {
      std::error_code failed;
      if (fs::remove_all(tree, failed) > 1 && !failed) ++removals;
    }
    parent.send("removed");
    parent.await("leave");
  });
  Client client;
  const MounterSm mounter(handler, "quotes", &client);
  bool removed = false;
  const Commands hear(remover->channel(), [&](const std::string&) { removed = true; });
  remover->send("begin");
  ASSERT_TRUE(until([&] { return removed; }));
  ASSERT_TRUE(until([&] { return fs::exists(tree + "/quotes"); }));
  while (loop.turn(0)) continue;
  client.reports.clear();
  expectWatched(client, tree + "/quotes");
  fs::rename(tree + "/quotes", tree + "/elsewhere");
  EXPECT_TRUE(until([&] { return client.wasTold("watch deleted"); }));
  expectWatched(client, tree + "/quotes");
  leave(remover);
}

}  // namespace
}  // namespace Zorbe::Test
