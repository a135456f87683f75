// SPDX-License-Identifier: MIT
#include "stress/simulation/invariants.h"

#include <algorithm>

namespace Zorbe::Test::Simulation {
namespace {

std::string number(uint64_t value) {
  return std::to_string(value);
}

// The writers: the one that has the lock, and those that write without it.
void checkOneWriter(World& world) {
  const Process* other = nullptr;
  for (const auto& process : world.processes()) {
    auto* program = programOf<WriterProgram>(*process);
    if (program == nullptr || !(program->holdsLock() || program->writer().isWriting())) continue;
    if (other != nullptr) world.fail(process->name() + " and " + other->name() + " both write");
    other = process.get();
  }
}

void checkSleepers(World& world, const TableWriter& writer) {
  for (const auto& [fd, sleeper] : writer.sleepers()) {
    const auto found = writer.connections().find(fd);
    if (found == writer.connections().end() || found->second != sleeper)
      return world.fail("a reader that is not connected counts as asleep");
    if (writer.process().isWaiting() && sleeper->sequence != writer.sequence())
      return world.fail("a reader counts as asleep at " + number(sleeper->sequence) +
                        " while the writer is at " + number(writer.sequence()));
  }
}

// Whether this end of a connection, the writer's, belongs to the reader.
bool belongsTo(const TableWriter& writer, int fd, const Process& process, int readersFd) {
  const Kernel::SocketRef end = writer.process().socket(fd);
  return end && end->peer.lock() == process.socket(readersFd) && !end->peer.expired();
}

void checkReader(World& world, const TableWriter& writer, const Process& process,
                 const TableReader& reader) {
  if (!reader.isConnected() || reader.table() != writer.table()) return;
  for (const auto& [fd, connection] : writer.connections()) {
    if (!belongsTo(writer, fd, process, reader.descriptor())) continue;
    if (connection->sequence <= reader.applied() && writer.lowestSequence() <= reader.applied())
      return;
    world.fail(process.name() + " has read up to " + number(reader.applied()) +
               ", and the writer believes " + number(connection->sequence) + ", lowest " +
               number(writer.lowestSequence()));
  }
}

template <class Check>
void forEachReader(const World& world, Check check) {
  for (const auto& process : world.processes()) {
    auto* program = programOf<ReaderProgram>(*process);
    if (program != nullptr) check(*process, *program);
  }
}

bool peerLives(const Process& process, int fd) {
  const Kernel::SocketRef socket = process.socket(fd);
  return socket && !socket->peerClosed;
}

void checkCaughtUp(World& world, const TableWriter& writer, const Process& process,
                   TableReader* reader) {
  if (reader == nullptr || !reader->isConnected())
    return world.fail(process.name() + " is at rest without a connection");
  if (!peerLives(process, reader->descriptor()))
    return world.fail(process.name() + " was not notified that its writer has exited");
  if (!reader->isAcknowledged())
    return world.fail(process.name() + " is at rest without an acknowledgement");
  if (reader->table() != writer.table())
    return world.fail(process.name() + " sleeps with another incarnation of the table");
  if (reader->applied() != writer.sequence())
    world.fail(process.name() + " sleeps at " + number(reader->applied()) + " behind " +
               number(writer.sequence()));
}

}  // namespace

TableWriter* lockHolder(const World& world) {
  for (const auto& process : world.processes()) {
    auto* program = programOf<WriterProgram>(*process);
    if (program != nullptr && program->holdsLock()) return &program->writer();
  }
  return nullptr;
}

void checkAlways(World& world) {
  checkOneWriter(world);
  const TableWriter* writer = lockHolder(world);
  if (writer == nullptr || !writer->table()) return;
  checkSleepers(world, *writer);
  if (writer->process().isWaiting() &&
      writer->reportedConnections() != writer->connections().size())
    world.fail("the set of readers has changed, and readersChanged was not called");
  forEachReader(world, [&](const Process& process, ReaderProgram& program) {
    if (program.reader() != nullptr) checkReader(world, *writer, process, *program.reader());
  });
}

void checkIdle(World& world) {
  const TableWriter* writer = lockHolder(world);
  if (writer == nullptr) return world.fail("at rest without a writer");
  std::size_t connections = 0;
  forEachReader(world, [&](const Process& process, ReaderProgram& program) {
    checkCaughtUp(world, *writer, process, program.reader());
    const Departure* departure = program.departure();
    if (departure != nullptr && !peerLives(process, departure->descriptor()))
      world.fail(process.name() + " watches a writer that has exited");
    connections += departure != nullptr ? 2 : 1;
  });
  if (writer->connections().size() != connections)
    world.fail("the writer has " + number(writer->connections().size()) + " connections, and " +
               number(connections) + " are open");
}

void checkDepartureReported(World& world) {
  forEachReader(world, [&](const Process& process, ReaderProgram& program) {
    const Departure* departure = program.departure();
    if ((program.reader() != nullptr && program.reader()->isConnected()) ||
        (departure != nullptr && departure->seesWriter()))
      world.fail(process.name() + " was not notified that its writer has exited");
  });
}

void checkChangeReported(World& world, const std::string& file) {
  const auto check = [&](const Process& process, auto* program) {
    if (program != nullptr && program->watchesDirectory() && program->takeChange(file) == 0)
      world.fail(process.name() + " has lost sight of the directory");
  };
  for (const auto& process : world.processes()) {
    check(*process, programOf<ReaderProgram>(*process));
    check(*process, programOf<WriterProgram>(*process));
  }
}

}  // namespace Zorbe::Test::Simulation
