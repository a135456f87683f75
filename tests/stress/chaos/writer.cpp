// SPDX-License-Identifier: MIT
#include "stress/chaos/writer.h"

#include <quotes_writer.h>
#include <sys/socket.h>
#include <zorbe/exceptions.h>
#include <zorbe/unlock.h>

#include <cerrno>
#include <sstream>
#include <system_error>

#include "stress/chaos/client_context.h"
#include "stress/chaos/mutual_exclusion_oracle.h"
#include "support/periodic_signal.h"
#include "support/table.h"

namespace Zorbe::Test::Chaos {
namespace {

constexpr std::chrono::milliseconds kConnectTimeout{100};
constexpr double kRetrySeconds = 0.02;
constexpr Quotes::Shape kShape{64, 256};

pid_t peerOf(int connection) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0)
    throw std::system_error(errno, std::generic_category(), "getsockopt");
  return peer.pid;
}

/// The example's writer, which publishes what its readers have reported.
class Writer final : public Quotes::QuotesWriter {
 public:
  Writer(ClientContext& context, Board& board)
      : QuotesWriter(context.log, context.root, kShape), board_(board) {}

  void publish(unsigned count) {
    for (; count > 0; --count) {
      const uint64_t next = sequence() + 1;
      const size_t key = next % kKeys;
      QuotesWriter::publish({"S" + std::to_string(key), static_cast<int64_t>(next), 1});
      board_.published[key] = next;  // afterwards: a kill in between claims too little
    }
  }

  bool updateState(Place& place) {
    bool news = update(place.fenix, fenix());
    news |= update(place.sequence, sequence());
    news |= update(place.connections, static_cast<uint32_t>(readers.size()));
    for (const auto& [fd, client] : readers) {
      if (client->acknowledged && client->sequence == sequence())
        news |= updateReported(peerOf(fd));
    }
    return news;
  }

 private:
  bool updateReported(pid_t reader) {
    for (Place& place : board_.places) {
      if (place.pid != reader) continue;
      const bool news = update(place.reportedFenix, fenix());
      return update(place.reportedSequence, sequence()) || news;
    }
    return false;  // killed and replaced
  }

  Board& board_;
};

/// Waits for the lock as long as another process has it, takes it, and writes.
class Candidate final : public WriterUnlockSm {
 public:
  Candidate(ClientContext& context, Board& board, Place& place, const std::string& oraclePath,
            Flaw flaw)
      : WriterUnlockSm(context.log, "candidate", context.root),
        root_(context.root),
        place_(place),
        flaw_(flaw),
        oracle_(oraclePath),
        makeWriter_([&] { return std::make_unique<Writer>(context, board); }),
        retry_([this] { attempt(); }) {}
  ~Candidate() override { endWriting(); }

  void attempt() {
    if (flaw_ == Flaw::kStartsEmpty) root_.removeFile("slots");
    writer_ = makeWriter_();
    try {
      writer_->open();
      beginWriting();
      writer_->publish(1);
    } catch (const DuplicateWriterException&) {
      writer_.reset();
      flaw_ == Flaw::kIgnoresTheLock ? beginWriting() : awaitDeparture();
    } catch (const Brask::Exception&) {  // logged; the directory was removed in between
      endWriting();
      writer_.reset();
      retry_.start(kRetrySeconds);
    }
  }

  void handle(const std::string& words) {
    std::istringstream order(words);
    std::string verb;
    unsigned count = 0;
    uint32_t request = 0;
    order >> verb >> count >> request;
    if (flaw_ == Flaw::kWriterLeaks) leakDescriptor();
    if (writer_) writer_->publish(count);
    place_.answered = request;
  }

  void writerUnlocked() override { retry_.start(kRetrySeconds); }

  bool updateState() {
    const bool news = std::exchange(newlyWriting_, false);
    return (writer_ && writer_->updateState(place_)) || news;
  }

 private:
  void beginWriting() {
    place_.otherWriter = oracle_.take();
    place_.writing = true;
    newlyWriting_ = true;
  }

  // Before the release of the lock: the next writer finds it free.
  void endWriting() {
    if (place_.writing.exchange(false)) oracle_.release();
  }

  void awaitDeparture() {
    const PeriodicSignal signals(kConnectTimeout);
    doConnect();
  }

  RootPath root_;
  Place& place_;
  Flaw flaw_;
  bool newlyWriting_ = false;
  MutualExclusionOracle oracle_;
  std::function<std::unique_ptr<Writer>()> makeWriter_;
  std::unique_ptr<Writer> writer_;
  Pause retry_;
};

}  // namespace

void runCandidate(Channel& parent, Board& board, Place& place, const std::string& oraclePath,
                  Flaw flaw) {
  ClientContext context(parent, place);
  Candidate candidate(context, board, place, oraclePath, flaw);
  const Commands commands(parent, [&](const std::string& words) { candidate.handle(words); });
  candidate.attempt();
  context.run([&] { return candidate.updateState(); });
}

}  // namespace Zorbe::Test::Chaos
