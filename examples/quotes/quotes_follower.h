// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>
#include <zorbe/root_path.h>
#include <zorbe/unlock.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "directory_watch.h"
#include "quotes_reader.h"

namespace Quotes {

/// Follows a table through all that can happen to it: no writer yet, no table yet, the
/// writer killed and another in its place, the directory removed. Owns the QuotesReader of
/// the present incarnation, and replaces it by that of the next.
///
///     QuotesFollower follower(log, root, {});
///     follower.start();
///     loop.run();
///
/// Three things tell it that the world has changed: the end of the WriterUnlockSm's
/// connection, the MounterSm's reports about the directory, and the reader itself. All of
/// them come to one place, look(), which compares what is with what should be and does
/// what is missing. It does not matter which of them came first, or that one was reported twice.
class QuotesFollower : public QuotesReader::Owner,
                       public Zorbe::MounterBase,
                       public Brask::Platform::TimeoutHandler {
 public:
  struct Options {
    double restSeconds = 0;                             ///< between two passes
    std::function<void(const std::string&)> onEvent{};  ///< told what happens, in words
  };

  /// Creates the directory and watches it. The handler has to outlive this object.
  QuotesFollower(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
                 const Options& options);

  /// The first look.
  void start();

  /// To be called when an exception of the library has left the loop, as when the directory
  /// was removed and cannot be made again. Watches it again as soon as that is possible, and
  /// connects again: the exception may have come out of a pass, which has not reported then,
  /// and the writer sends no kick before it has a report.
  void recover();

  /// The present incarnation's reader, null before the first.
  const QuotesReader* reader() const { return reader_.get(); }

  /// There is a writer, and its end will be told.
  bool seesWriter() const { return sawWriter_; }

  const Zorbe::Reader::Counters& counters() const { return counters_; }

  void connectionLost() override;
  void tableReplaced() override;
  void tableCorrupt(const std::string& why) override;
  void rootChanged(const std::string& what) override;
  void timeout() override;

 private:
  /// Hears of the writer's end. Also used to find out whether there is a writer at all,
  /// since to it, other than to the reader's connection, a missing one is nothing unusual.
  class Departure : public Zorbe::WriterUnlockSm {
   public:
    Departure(QuotesFollower& owner, Brask::Platform::DebugHandler& debugHandler,
              const Zorbe::RootPath& root)
        : WriterUnlockSm(debugHandler, "quotes", root), follower(owner) {}
    bool seesWriter() { return fdControl->fd() >= 0; }
    void writerUnlocked() override { follower.writerGone(); }

    QuotesFollower& follower;
  };

  void writerGone();
  void look();
  void lookWithin(double seconds);
  bool findWriter();
  bool isCurrent();
  void leaveTable();
  void disconnect();
  void reportCorruption();
  bool mapTable();
  void tell(const std::string& event);

  Brask::Platform::DebugHandler& handler_;
  Zorbe::RootPath rootPath_;
  Options options_;
  Zorbe::Reader::Counters counters_{};
  std::unique_ptr<QuotesReader> reader_;
  bool usable_ = false;        // the reader's table may be used
  std::string corruption_;     // what was found wrong with it, to be told
  uint32_t corruptFenix_ = 0;  // the last incarnation of which that was reported
  bool sawWriter_ = false;     // since the last departure
  uint64_t nextLook_ = 0;      // when, 0 for never
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
  Departure departure_;
  DirectoryWatch watch_;
};

}  // namespace Quotes
