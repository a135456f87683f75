// SPDX-License-Identifier: MIT
#include "unit/tools/command_fixture.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace Zorbe::Test {
namespace {

std::string example(const std::string& name) {
  return std::string(ZORBE_EXAMPLE_PROGRAMS) + "/" + name;
}

}  // namespace

Outcome Command::zorbe(const Words& arguments) {
  Words words{ZORBE_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return runProgram(words);
}

// The build may lie where an ordinary user cannot go: a copy runs.
Outcome Command::zorbeAsOrdinaryUser(const Words& arguments) {
  if (!isRoot()) return zorbe(arguments);
  fs::permissions(rootPath(), fs::perms(0777));
  const std::string folder = inRoot("programs");
  fs::create_directory(folder);
  for (const char* file : {ZORBE_COMMAND, ZORBE_LIBRARY, ZORBE_PLATFORM_LIBRARY}) {
    fs::copy(file, folder, fs::copy_options::overwrite_existing);
  }
  Words words{"/usr/bin/env",   "LD_LIBRARY_PATH=" + folder,
              "setpriv",        "--reuid=65534",
              "--regid=65534",  "--clear-groups",
              folder + "/zorbe"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return runProgram(words);
}

Outcome Command::traced(const std::string& calls, const std::string& trace,
                        const Words& arguments) {
  Words words{"/usr/bin/env", "ASAN_OPTIONS=detect_leaks=0",
              "strace",       "-f",
              "-e",           "trace=" + calls,
              "-o",           trace,
              ZORBE_COMMAND};
  words.insert(words.end(), arguments.begin(), arguments.end());
  return runProgram(words);
}

ChildProcess Command::start(Words arguments) {
  arguments.insert(arguments.begin(), ZORBE_COMMAND);
  return ChildProcess(arguments);
}

ChildProcess Command::startWriter(const std::string& table, int others) {
  ChildProcess writer({example("quotes-writer"), table});
  // Until then it looks at its table as a reader does.
  writer.awaitLine("read ");
  listedOnce(table, [others](const Json& found) {
    return found["connections"] <= others && found["pending"] == 0;
  });
  return writer;
}

ChildProcess Command::startReader(const std::string& table) {
  ChildProcess reader({example("quotes-reader"), table, "--events"});
  reader.awaitLine("event mapped");
  return reader;
}

Json Command::listed(const std::string& table) {
  const Outcome run = zorbe({"list", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  const Json output = run.json();
  for (const Json& found : output["tables"]) {
    if (found["name"] == table) return found;
  }
  return nullptr;
}

Json Command::listedOnce(const std::string& table, const std::function<bool(const Json&)>& wanted) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  Json found;
  do {
    found = listed(table);
    if (!found.is_null() && wanted(found)) return found;
  } while (std::chrono::steady_clock::now() < deadline);
  ADD_FAILURE() << "never as wanted: " << found;
  return found;
}

std::string Command::makeTable(const std::string& name) {
  const RootPath root(handler, name, true);
  writeFile(root.fullPath("fenix"), "1\n");
  return root.path;
}

void Command::writeFile(const std::string& path, const std::string& content, unsigned mode) {
  std::ofstream(path) << content;
  EXPECT_EQ(chmod(path.c_str(), mode), 0) << path;
}

Descriptor Command::lock(const std::string& table) {
  return Descriptor(Util::acquireWriterLock(handler, RootPath(handler, table, true)));
}

Descriptor Command::lockAndListen(const std::string& table) {
  Descriptor held = lock(table);
  EXPECT_EQ(listen(held.get(), 5), 0);
  return held;
}

std::vector<RawPeer> Command::fillQueue(const std::string& table) {
  return RawPeer::fillQueue(RootPath(handler, table, false).path);
}

bool Command::isRoot() {
  return geteuid() == 0;
}

}  // namespace Zorbe::Test
