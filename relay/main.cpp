// SPDX-License-Identifier: MIT
#include <brask/linux/event_loop.h>
#include <brask/linux/stream_debug_handler.h>
#include <poll.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "mirror/mirror.h"
#include "output/text.h"
#include "publish/publisher.h"
#include "records/streams.h"
#include "server/credentials.h"

namespace Zorbe::Relay {

namespace {

constexpr int kSuccess = 0;
constexpr int kEnded = 1;
constexpr int kFailure = 2;

struct Arguments {
  std::string table;
  std::string address;
  std::string name;
  std::string prefix = "zorbe:";
  std::string user;
  std::string passwordFile;
  std::string root;
  int debug = 1;
  uint64_t history = 64;
};

Session::Options serverOf(const Arguments& arguments, bool writes) {
  Session::Options options;
  options.address = parseAddress(arguments.address);
  options.credentials = findCredentials(arguments.user, arguments.passwordFile);
  options.writes = writes;
  return options;
}

Table::Options tableOptions(const Arguments& arguments, Brask::Platform::DebugHandler& log) {
  Table::Options options;
  options.root = arguments.root;
  options.log = &log;
  return options;
}

template <class IsOver>
int turn(Brask::Linux::EventLoop& loop, const Tool::StopSignals& stop, const IsOver& isOver) {
  while (!isOver()) {
    pollfd fds[] = {{stop.fd(), POLLIN, 0}, {loop.fd(), POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0 && errno != EINTR) throw std::runtime_error("poll() fails");
    if (fds[0].revents != 0) return kSuccess;
    loop.turn(0);
  }
  return kEnded;
}

int publish(const Arguments& arguments) {
  const Tool::StopSignals stop;
  Brask::Linux::StreamDebugHandler log(std::cerr, arguments.debug, {});
  Publisher::Options options;
  options.server = serverOf(arguments, true);
  options.table = arguments.table;
  options.reading = tableOptions(arguments, log);
  options.name = arguments.name.empty() ? arguments.table : arguments.name;
  options.prefix = arguments.prefix;
  options.history = arguments.history << 20;
  Brask::Linux::EventLoop loop;
  const Publisher publisher(options, log);
  const int status = turn(loop, stop, [&] { return !publisher.end().empty(); });
  if (!publisher.end().empty())
    std::cerr << "zorbe-relay: " + Tool::printable(publisher.end()) + "\n";
  return status;
}

int mirror(const Arguments& arguments) {
  const Tool::StopSignals stop;
  Brask::Linux::StreamDebugHandler log(std::cerr, arguments.debug, {});
  Mirror::Options options;
  options.server = serverOf(arguments, false);
  options.name = arguments.table;
  options.table = arguments.name.empty() ? arguments.table : arguments.name;
  options.writing = tableOptions(arguments, log);
  options.prefix = arguments.prefix;
  Brask::Linux::EventLoop loop;
  const Mirror mirror(options, log);
  return turn(loop, stop, [] { return false; });
}

CLI::App* addDirection(CLI::App& app, Arguments& arguments, const char* name, const char* about,
                       const char* server) {
  CLI::App* const command = app.add_subcommand(name, about);
  command->add_option("TABLE", arguments.table, "Name of the table")->required()->type_name("");
  command
      ->add_option(server, arguments.address,
                   "redis://host:port/0, unix:///path or "
                   "redis+sentinel://host:port,.../master")
      ->required()
      ->type_name("ADDRESS");
  command->add_option("--as", arguments.name, "Another name at the other end")->type_name("NAME");
  command->add_option("--prefix", arguments.prefix, "Of the server's keys")->type_name("TEXT");
  command->add_option("--user", arguments.user, "ACL user of the server")->type_name("NAME");
  command->add_option("--password-file", arguments.passwordFile, "Its first line is the password")
      ->type_name("FILE");
  command->add_option("--root", arguments.root, "Base directory of the tables")->type_name("DIR");
  command->add_option("--debug", arguments.debug, "Show messages up to a level (default 1)")
      ->type_name("LEVEL")
      ->check(CLI::Range(0, 9));
  return command;
}

int run(int argc, char** argv) {
  Arguments arguments;
  CLI::App app("Carries a table to other hosts over a Redis server.", "zorbe-relay");
  app.require_subcommand(1);
  app.set_version_flag("--version", ZORBE_VERSION);
  CLI::App* const publishing = addDirection(
      app, arguments, "publish", "Keep a copy of a table of this host on the server", "--to");
  publishing
      ->add_option("--history", arguments.history,
                   "MiB of changes that the server keeps (default 64)")
      ->type_name("MIB")
      ->check(CLI::Range(1, 1 << 20));
  addDirection(app, arguments, "mirror", "Keep a table of this host as the server's copy is",
               "--from");
  CLI11_PARSE(app, argc, argv);
  return publishing->parsed() ? publish(arguments) : mirror(arguments);
}

}  // namespace

}  // namespace Zorbe::Relay

int main(int argc, char** argv) {
  try {
    return Zorbe::Relay::run(argc, argv);
  } catch (const std::exception& failure) {
    std::cerr << "zorbe-relay: " + Zorbe::Tool::printable(failure.what()) + "\n";
    return 2;
  }
}
