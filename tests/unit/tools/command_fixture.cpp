// SPDX-License-Identifier: MIT
#include "unit/tools/command_fixture.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zorbe/util.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Zorbe::Test {
namespace fs = std::filesystem;
namespace {

using Quotes::Child;
using Quotes::Descriptor;

constexpr std::chrono::seconds patience{60};

std::string example(const std::string& name) {
  return std::string(ZORBE_EXAMPLE_PROGRAMS) + "/" + name;
}

// All that it writes until it closes its output.
std::string readAll(Child& child) {
  std::string text;
  try {
    for (;;) text += child.awaitLine("") + "\n";
  } catch (const std::runtime_error&) {
    return text;
  }
}

}  // namespace

Words Outcome::lines() const {
  Words lines;
  std::istringstream stream(out);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Outcome Command::runProgram(const Words& words) {
  Child child(words);
  std::string out = readAll(child);
  const int status = child.awaitEnd();
  return {status, std::move(out), child.errors()};
}

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

Child Command::start(Words arguments) {
  arguments.insert(arguments.begin(), ZORBE_COMMAND);
  return Child(arguments);
}

Child Command::startWriter(const std::string& table) {
  Child writer({example("quotes-writer"), table});
  writer.awaitLine("ready ");
  return writer;
}

Child Command::startReader(const std::string& table) {
  Child reader({example("quotes-reader"), table, "--events"});
  reader.awaitLine("event mapped");
  return reader;
}

nlohmann::json Command::listed(const std::string& table) {
  const Outcome run = zorbe({"list", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  const nlohmann::json told = run.json();
  for (const nlohmann::json& found : told["tables"]) {
    if (found["name"] == table) return found;
  }
  return nullptr;
}

nlohmann::json Command::listedOnce(const std::string& table,
                                   const std::function<bool(const nlohmann::json&)>& wanted) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  nlohmann::json found;
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
  Descriptor held(Util::acquireWriterLock(handler, RootPath(handler, table, true)));
  EXPECT_EQ(fcntl(held.get(), F_SETFD, FD_CLOEXEC), 0);  // or the command holds it, too
  return held;
}

Descriptor Command::lockAndListen(const std::string& table) {
  Descriptor held = lock(table);
  EXPECT_EQ(listen(held.get(), 5), 0);
  return held;
}

void Command::stop(Child& child) {
  child.signal(SIGSTOP);
  int status = 0;
  EXPECT_EQ(waitpid(child.pid(), &status, WUNTRACED), child.pid());
  EXPECT_TRUE(WIFSTOPPED(status));
}

Descriptor Command::connect(const std::string& table) {
  sockaddr_un address = {};
  const RootPath root(handler, table, false);
  const socklen_t length = Util::createSockaddr(handler, &address, root.path);
  Descriptor fd(Util::socket(handler, AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0) return fd;
  return Descriptor();
}

std::vector<Descriptor> Command::fillQueue(const std::string& table) {
  std::vector<Descriptor> connections;
  for (Descriptor fd = connect(table); fd.get() >= 0; fd = connect(table)) {
    connections.push_back(std::move(fd));
  }
  return connections;
}

bool Command::isRoot() {
  return geteuid() == 0;
}

}  // namespace Zorbe::Test
