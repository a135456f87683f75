// SPDX-License-Identifier: MIT
//
// Ways to notify readers in other processes of a change, all with the same work: one round
// publishes, every reader wakes and answers with 8 bytes, and the round ends when the writer has
// received the last answer.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "harness/statistics.h"

namespace Bench {

class Scheme {
 public:
  virtual ~Scheme() = default;
  virtual std::string name() const = 0;

  /// Before any process is started: starts brokers, maps what processes share.
  virtual void prepare() {}

  /// What a reader does, in a process of its own.
  virtual void read() = 0;

  /// Starts the part of the writer that readers need in order to begin.
  virtual void open(int readers) = 0;

  /// Returns when all readers sleep and a round can begin.
  virtual void settle() = 0;

  virtual void round() = 0;

  /// False where a second round cannot begin before the last reader of the first one, or where
  /// the scheme has one reader only.
  virtual bool fansOut() const { return true; }
};

/// A scheme that carries the sequence in its messages both ways.
class MessageScheme : public Scheme {
 public:
  void open(int readers) final {
    readers_ = readers;
    openWriter();
  }

  /// Publishes until all readers have answered one publication: some schemes lose what is
  /// published while a reader is connecting.
  void settle() final {
    while (!tryRound(200)) {
    }
  }

  void round() final { static_cast<void>(tryRound(-1)); }

 protected:
  virtual void openWriter() = 0;
  virtual void publish(uint64_t sequence) = 0;

  /// Waits for the next answer; false after that many milliseconds (negative: for ever).
  virtual bool answer(uint64_t& sequence, int milliseconds) = 0;

  int readers() const { return readers_; }

 private:
  bool tryRound(int milliseconds) {
    publish(++sequence_);
    for (int answered = 0; answered < readers_;) {
      uint64_t sequence = 0;
      if (!answer(sequence, milliseconds)) return false;
      if (sequence == sequence_) ++answered;
    }
    return true;
  }

  int readers_ = 0;
  uint64_t sequence_ = 0;
};

using Schemes = std::vector<std::unique_ptr<Scheme>>;

std::unique_ptr<Scheme> makeFloor();
std::unique_ptr<Scheme> makeZorbe();
std::unique_ptr<Scheme> makeEventfd();
std::unique_ptr<Scheme> makeFutex();

/// Those of other libraries that the build has found.
Schemes makeLibraries();

/// The floor and the library.
Schemes closePair();

/// The schemes, running: each with its own readers, one process per reader.
class Field {
 public:
  /// `readerCpu` -1 leaves the readers where the writer runs.
  Field(Schemes schemes, int readers, int readerCpu);
  ~Field();
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  Schemes& schemes() { return schemes_; }

 private:
  Schemes schemes_;
  struct ReaderProcesses;
  std::vector<std::unique_ptr<ReaderProcesses>> readers_;
};

/// Compares the schemes of a field, round by round.
std::vector<Outcome> race(Field& field, int blocks, int rounds);

}  // namespace Bench
