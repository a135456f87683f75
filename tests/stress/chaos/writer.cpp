// SPDX-License-Identifier: MIT
#include "stress/chaos/writer.h"

#include <quotes_writer.h>
#include <sys/socket.h>
#include <zorbe/exceptions.h>
#include <zorbe/unlock.h>

#include <cerrno>
#include <sstream>
#include <system_error>

#include "stress/chaos/stage.h"
#include "stress/chaos/witness.h"
#include "support/table.h"
#include "support/watchdog.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr std::chrono::milliseconds connectPatience{100};
constexpr double retrySeconds = 0.02;
constexpr Quotes::Shape shape{64, 256};
constexpr uint64_t symbols = 16;

pid_t peerOf(int connection) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
    throw std::system_error(errno, std::generic_category(), "getsockopt");
  return peer.pid;
}

/// The example's writer, which says what its readers have reported.
class Writer final : public Quotes::QuotesWriter {
 public:
  Writer(ChaosStage& stage, Board& board)
      : QuotesWriter(stage.log, stage.root, shape), board_(board) {}

  void publish(unsigned count) {
    for (; count > 0; --count) {
      const uint64_t next = sequence() + 1;
      QuotesWriter::publish({"S" + std::to_string(next % symbols), static_cast<int64_t>(next), 1});
    }
  }

  bool tellState(Place& place) {
    bool news = update(place.fenix, fenix());
    news |= update(place.sequence, sequence());
    news |= update(place.connections, static_cast<uint32_t>(readers.size()));
    for (const auto& [fd, client] : readers) {
      if (client->acknowledged && client->sequence == sequence()) news |= tellHeard(peerOf(fd));
    }
    return news;
  }

 private:
  bool tellHeard(pid_t reader) {
    for (Place& place : board_.places) {
      if (place.pid != reader) continue;
      const bool news = update(place.heardFenix, fenix());
      return update(place.heardSequence, sequence()) || news;
    }
    return false;  // killed, and its place taken
  }

  Board& board_;
};

/// Waits for the lock as long as somebody has it, takes it, and writes.
class Candidate final : public WriterUnlockSm {
 public:
  Candidate(ChaosStage& stage, Board& board, Place& place, const std::string& witnessPath,
            Flaw flaw)
      : WriterUnlockSm(stage.log, "candidate", stage.root),
        place_(place),
        flaw_(flaw),
        witness_(witnessPath),
        makeWriter_([&] { return std::make_unique<Writer>(stage, board); }),
        retry_([this] { attempt(); }) {}
  ~Candidate() override { giveWitnessBack(); }

  void attempt() {
    writer_ = makeWriter_();
    try {
      writer_->open();
      takeWitness();
      writer_->publish(1);
    } catch (const DuplicateWriterException&) {
      writer_.reset();
      flaw_ == Flaw::ignoresTheLock ? takeWitness() : awaitDeparture();
    } catch (const Brask::Exception&) {  // logged; the directory was removed in between
      giveWitnessBack();
      writer_.reset();
      retry_.start(retrySeconds);
    }
  }

  void obey(const std::string& words) {
    std::istringstream order(words);
    std::string verb;
    unsigned count = 0;
    uint32_t request = 0;
    order >> verb >> count >> request;
    if (flaw_ == Flaw::writerLeaks) leakDescriptor();
    if (writer_) writer_->publish(count);
    place_.answered = request;
  }

  void writerUnlocked() override { retry_.start(retrySeconds); }

  bool tellState() {
    const bool news = std::exchange(newlyWriting_, false);
    return (writer_ && writer_->tellState(place_)) || news;
  }

 private:
  void takeWitness() {
    place_.otherWriter = witness_.take();
    place_.writing = true;
    newlyWriting_ = true;
  }

  // Before the lock: the next writer finds it free.
  void giveWitnessBack() {
    if (place_.writing.exchange(false)) witness_.giveBack();
  }

  void awaitDeparture() {
    const Watchdog watchdog(connectPatience);
    doConnect();
  }

  Place& place_;
  Flaw flaw_;
  bool newlyWriting_ = false;
  Witness witness_;
  std::function<std::unique_ptr<Writer>()> makeWriter_;
  std::unique_ptr<Writer> writer_;
  Pause retry_;
};

}  // namespace

void playCandidate(Channel& parent, Board& board, Place& place, const std::string& witnessPath,
                   Flaw flaw) {
  ChaosStage stage(parent, place);
  Candidate candidate(stage, board, place, witnessPath, flaw);
  const Commands commands(parent, [&](const std::string& words) { candidate.obey(words); });
  candidate.attempt();
  stage.run([&] { return candidate.tellState(); });
}

}  // namespace Zorbe::Test::Chaos
