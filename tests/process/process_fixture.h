// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/root_path.h>

#include <memory>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/fixture.h"
#include "support/roles.h"

namespace Zorbe::Test {

/// For tests whose writer and readers are processes of their own.
class ProcessTest : public ZorbeTest {
 protected:
  using Child = std::unique_ptr<ChildProcess>;

  Child start(const std::string& name, const ChildProcess::Role& role) {
    return std::make_unique<ChildProcess>(name, role);
  }

  Child startWriter() {
    Child writer = start("writer", [this](Channel& parent) { runWriter(parent, table); });
    writer->await("listening");
    return writer;
  }

  std::vector<Child> startReaders(unsigned count) { return startMany(count, "reader", runReader); }
  std::vector<Child> startFollowers(unsigned count) {
    return startMany(count, "follower", runFollower);
  }

  /// Publishes in the writer's process and waits until all readers have read it.
  void publishTo(const Child& writer, const std::vector<Child>& readers, uint64_t count = 1) {
    const std::string goal = std::to_string(published += count);
    for (const Child& reader : readers) reader->send("reach " + goal);
    writer->send("publish " + std::to_string(count));
    for (const Child& reader : readers) reader->await("at " + goal);
  }

  /// Waits until the end of the writer was reported to all followers.
  static void awaitDeparture(const std::vector<Child>& followers) {
    for (const Child& follower : followers) follower->send("alone");
    for (const Child& follower : followers) follower->await("alone");
  }

  static void leave(const Child& child) {
    child->send("leave");
    EXPECT_EQ(child->finish(), 0);
  }
  static void leave(const std::vector<Child>& children) {
    for (const Child& child : children) leave(child);
  }

  SharedTable table;
  uint64_t published = 0;

 private:
  using Part = void (*)(Channel&, SharedTable&);

  std::vector<Child> startMany(unsigned count, const std::string& name, Part part) {
    std::vector<Child> children;
    for (unsigned i = 1; i <= count; ++i) {
      children.push_back(start(name + " " + std::to_string(i),
                               [this, part](Channel& parent) { part(parent, table); }));
    }
    return children;
  }
};

}  // namespace Zorbe::Test
