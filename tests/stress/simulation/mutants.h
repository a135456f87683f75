// SPDX-License-Identifier: MIT
//
// Writers and readers that each break one rule, to show that the simulation notices. Those
// that break a rule of the library do so by what a subclass can reach.
#pragma once

#include <zorbe/exceptions.h>

#include <algorithm>

#include "stress/simulation/simulation.h"

namespace Zorbe::Test::Simulation {

/// The first report of a reader that has caught up gets no kick.
class ForgetsAcknowledgement : public TableWriter {
 public:
  using TableWriter::TableWriter;
  void fdEvent(int fd) override {
    TableWriter::fdEvent(fd);
    for (const auto& [connection, client] : readers) client->acknowledged = true;
  }
};

/// Readers that were kicked still count as asleep.
class KeepsSleepers : public TableWriter {
 public:
  using TableWriter::TableWriter;
  void publish(unsigned changes) override {
    const auto sleepers = sleepingReaders;
    TableWriter::publish(changes);
    sleepingReaders = sleepers;
  }
};

/// Drops the readers that have caught up, instead of kicking them.
class ForgetsSleepers : public TableWriter {
 public:
  using TableWriter::TableWriter;
  void publish(unsigned changes) override {
    change(changes);
    sleepingReaders.clear();
  }
};

/// Writes although it was refused.
class WritesWithoutTheLock : public TableWriter {
 public:
  using TableWriter::TableWriter;
  void begin() override {
    try {
      TableWriter::begin();
    } catch (const DuplicateWriterException&) {
      if (!process().isDead()) takeOver();
    }
  }
};

/// Marks the old table as replaced before the new one is in place.
class ReplacesTooEarly : public TableWriter {
 public:
  using TableWriter::TableWriter;

 protected:
  void replace(const TableRef& left) override {
    if (left && left != table()) left->replaced = true;
    placeFiles();
  }
};

/// Reports how far the table is, then reads it.
class ReportsBeforeReading : public TableReader {
 public:
  using TableReader::TableReader;

 protected:
  uint64_t readerSequence() override {
    sendSequence(table()->sequence);
    return std::max(sentSequence, TableReader::readerSequence());
  }
};

/// Expects a kick for everything that it has not read.
class RunsNoPassWhenAcknowledged : public TableReader {
 public:
  using TableReader::TableReader;

 protected:
  void writerAcknowledged() override {}
};

/// Keeps a connection whose end was reported to it.
class IgnoresDeparture : public TableReader {
 public:
  using TableReader::TableReader;

 protected:
  void writerConnectionChanged() override {
    if (connected) return TableReader::writerConnectionChanged();
    connected = true;
  }
};

/// Keeps its watch although an overflow was reported.
class NeverWatchesAgain : public ReaderProgram {
 public:
  using ReaderProgram::ReaderProgram;

 protected:
  void watchAgain() override {}
};

template <class W>
Roles withWriter() {
  Roles roles = correctRoles();
  roles.writer = [](Process& process, const RootPath& root) {
    return std::make_unique<W>(process, root);
  };
  return roles;
}

template <class R>
Roles withReader() {
  Roles roles = correctRoles();
  roles.reader = [](ReaderProgram& program, const RootPath& root, TableRef table,
                    Reader::Counters& counters) {
    return std::make_unique<R>(program, root, std::move(table), counters);
  };
  return roles;
}

template <class P>
Roles withReaderProgram() {
  Roles roles = correctRoles();
  roles.readerProgram = [](Process& process, const ReaderProgram::Maker& make) {
    return std::make_unique<P>(process, make);
  };
  return roles;
}

}  // namespace Zorbe::Test::Simulation
