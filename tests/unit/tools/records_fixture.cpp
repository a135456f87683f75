// SPDX-License-Identifier: MIT
#include "unit/tools/records_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>

#include "support/file_content.h"

namespace Zorbe::Test {

LiveInput::LiveInput(const std::string& path) : path_(path) {
  EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
  fd_ = Descriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  EXPECT_TRUE(fd_.isOpen()) << path;
}

void LiveInput::write(const std::string& text) const {
  EXPECT_EQ(::write(fd_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

Outcome Records::zorbeWith(const std::string& input, const Words& arguments) {
  putContent(inRoot("input"), input);
  ChildProcess child = startWith(inRoot("input"), arguments);
  std::string out = child.channel().receiveAll();
  const int status = child.finish();
  return {status, std::move(out), child.log()};
}

ChildProcess Records::startWith(const std::string& input, Words arguments) {
  arguments.insert(arguments.begin(), ZORBE_COMMAND);
  return ChildProcess(arguments, input);
}

Words Records::rowsOf(const std::string& table) {
  Words lines = zorbe({"dump", table, "--csv"}).lines();
  if (!lines.empty()) lines.erase(lines.begin());
  return lines;
}

void Records::awaitRows(const std::string& table, const Words& wanted) {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  Words rows;
  do {
    rows = rowsOf(table);
    if (rows == wanted) return;
  } while (std::chrono::steady_clock::now() < deadline);
  ADD_FAILURE() << "never as wanted: " << testing::PrintToString(rows);
}

Words Records::feedOf(const std::string& table, const Words& more) {
  Words arguments{"feed", table, "--key", "k:S8", "--field", "v:i4"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  return arguments;
}

void Records::feed(const std::string& table, const std::string& rows) {
  const Outcome run = zorbeWith(rows, feedOf(table));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.out, "");
}

}  // namespace Zorbe::Test
