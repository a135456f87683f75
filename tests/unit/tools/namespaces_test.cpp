// SPDX-License-Identifier: MIT
#include "unit/tools/command_fixture.h"

namespace Zorbe::Test {
namespace {

using testing::HasSubstr;

/// Runs scripts in a network namespace of their own while that of the tables is another one.
class ZorbeNamespaces : public Command {
 protected:
  static constexpr int kSkipped = 100;

  /// `makeDefault` makes /run/netns/default, as `ip netns` would have. The script finds the
  /// command as $1 and the folder of the example programs as $2.
  Outcome elsewhere(const std::string& makeDefault, const std::string& script) {
    writeFile(inRoot("outer.sh"), "mount -t tmpfs tmpfs /run && mkdir /run/netns && " +
                                      makeDefault + " || exit 100\n" +
                                      "exec unshare -n /bin/sh \"$0\" \"$1\" \"$2\"\n");
    writeFile(inRoot("inner.sh"), script);
    return runProgram({"/bin/sh", "-c",
                       "unshare -r -n -m true || exit 100\n"
                       "exec unshare -r -n -m /bin/sh -c \". $1/outer.sh\" $1/inner.sh $2 $3",
                       "sh", rootPath(), ZORBE_COMMAND, ZORBE_EXAMPLE_PROGRAMS});
  }

  static constexpr const char* kThisOne =
      "touch /run/netns/default && mount --bind /proc/self/ns/net /run/netns/default";

  static Json finding(const Outcome& run) {
    const Json output = run.json();
    for (const Json& found : output["findings"]) {
      if (found["check"] == "namespace") return found;
    }
    return nullptr;
  }
};

TEST_F(ZorbeNamespaces, FindsTheWriterWhoseSocketIsInTheTablesNamespace) {
  const Outcome run = elsewhere(kThisOne,
                                "mkfifo \"$SHMEM_ROOT/said\" && exec 3<>\"$SHMEM_ROOT/said\"\n"
                                "\"$2/quotes-writer\" t >&3 &\n"
                                "read -r line <&3\n"
                                "\"$1\" owner t --json; status=$?\n"
                                "kill $! && wait $!\n"
                                "exit $status\n");
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.json()["writer"]["pids"].size(), 1U);
}

TEST_F(ZorbeNamespaces, TheDoctorIsContentWithOneThatCanBeEntered) {
  const Outcome run = elsewhere(kThisOne, "exec \"$1\" doctor --json\n");
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  EXPECT_EQ(finding(run)["severity"], "ok") << run.out;
}

TEST_F(ZorbeNamespaces, OneThatWasSetUpAndCannotBeEnteredIsAProblem) {
  const Outcome run = elsewhere("touch /run/netns/default", "exec \"$1\" doctor --json\n");
  if (run.status == kSkipped) GTEST_SKIP() << "needs user namespaces: " << run.err;
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(finding(run)["severity"], "problem") << run.out;
  EXPECT_THAT(finding(run)["what"].get<std::string>(), HasSubstr("/run/netns/default"));
}

}  // namespace
}  // namespace Zorbe::Test
