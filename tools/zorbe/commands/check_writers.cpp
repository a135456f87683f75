// SPDX-License-Identifier: MIT
#include <set>

#include "commands/finding.h"
#include "host/locks.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

std::string pidOf(const Writer& writer) {
  return writer.pids.empty() ? "PID" : std::to_string(writer.pids.front());
}

void checkOthers(const Table& table, Findings& findings) {
  if (table.otherWriters.empty()) return;
  std::string what = word(table.name) + " has " + std::to_string(table.otherWriters.size() + 1) +
                     " writers in one directory, each of which destroys what the others write: " +
                     describe(*table.writer) + ", lock " + printable(*table.socket);
  for (const Lock& lock : table.otherWriters) {
    what += "; " + describe(lock.writer) + ", lock " + printable(lock.socket);
  }
  findings.push_back({Severity::kCritical, "writers", what,
                      "end all of them, spell the directory alike everywhere (SHMEM_ROOT and the "
                      "name of the table), " +
                          removalOf(table) + ", and start one"});
}

void checkWriter(const Table& table, Findings& findings) {
  const Writer& writer = *table.writer;
  std::string waiting = counted(table.sockets.pending, "connection") + " waiting to be accepted";
  if (table.sockets.isFull()) waiting += ": the queue is full, and further readers hang";
  const std::string who = word(table.name) + ": its writer, " + describe(writer) + ", ";
  if (writer.stopped) {
    findings.push_back({Severity::kProblem, "writer", who + "is stopped, with " + waiting,
                        "kill -CONT " + pidOf(writer) + " (or end its debugger), or kill -KILL " +
                            pidOf(writer) + " and start it again"});
  } else if (!table.sockets.listening) {
    findings.push_back({Severity::kProblem, "writer",
                        who + "holds the lock and does not listen: no reader can connect",
                        "if it is not just starting: end it and start the writer"});
  } else if (table.sockets.isFull()) {
    findings.push_back({Severity::kProblem, "writer", who + "has " + waiting,
                        "see whether it turns its event loop, and has descriptors left "
                        "(LimitNOFILE=)"});
  }
}

// Readers keep what is there, but nobody changes it any more.
void addWithout(const Tables& without, Findings& findings) {
  if (without.empty()) return;
  Finding finding{Severity::kNote, "writer", "", ""};
  std::vector<std::string> words;
  for (const Table* table : without) {
    finding.subjects.push_back(table->name);
    words.push_back(word(table->name));
  }
  const Table& first = *without.front();
  if (without.size() == 1) {
    finding.what = words.front() + " has files and no writer";
    if (!first.lastOwner.empty()) finding.what += ": the last was " + printable(first.lastOwner);
    finding.fix = "start its writer, or " + removalOf(first);
  } else {
    finding.what =
        counted(without.size(), "table") + " have files and no writer: " + enumerated(words);
    finding.fix = "start their writers, or remove each: " + removalOf(first);
  }
  findings.push_back(std::move(finding));
}

}  // namespace

void checkWriters(const Tables& tables, Findings& findings) {
  Tables without;
  for (const Table* table : tables) {
    if (table->writer) {
      checkOthers(*table, findings);
      checkWriter(*table, findings);
    } else if (isSlotsFileLocked(table->path)) {
      findings.push_back({Severity::kProblem, "writer",
                          word(table->name) +
                              ": a process has locked its file slots, and its writer lock is not "
                              "found: it runs in another network namespace, or spells the "
                              "directory in another way",
                          "as root: lslocks, and start it as its readers are started"});
    } else if (table->exists()) {
      without.push_back(table);
    }
  }
  addWithout(without, findings);
}

}  // namespace Zorbe::Tool
