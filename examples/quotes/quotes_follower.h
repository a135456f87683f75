// SPDX-License-Identifier: MIT
#pragma once

#include <zorbe/counters.h>
#include <zorbe/root_path.h>

#include <memory>
#include <string>

#include "quotes_reader.h"

namespace Quotes {

/// Follows a table through all that can happen to it: no writer yet, no table yet, the
/// writer gone and come back, another incarnation. Owns the QuotesReader of the present
/// incarnation and replaces it by that of the next.
///
///     QuotesFollower follower(log, root, {});
///     follower.start();
///     loop.run();
///
/// While something is missing it looks again every now and then; never in a busy loop.
class QuotesFollower : public QuotesReader::Owner, public Brask::Platform::TimeoutHandler {
 public:
  struct Options {
    double restSeconds = 0;
  };

  /// Opens nothing. The handler has to outlive this object.
  QuotesFollower(Brask::Platform::DebugHandler& debugHandler, const Zorbe::RootPath& root,
                 const Options& options);

  /// The first look.
  void start();

  /// The present incarnation's reader, null before the first.
  const QuotesReader* reader() const { return reader_.get(); }

  const Zorbe::Reader::Counters& counters() const { return counters_; }

  void connectionLost() override;
  void tableUnusable(const std::string& why) override;
  void timeout() override;

 private:
  void look();
  void mapTable();

  Brask::Platform::DebugHandler& handler_;
  Zorbe::RootPath rootPath_;
  Options options_;
  Zorbe::Reader::Counters counters_{};
  std::unique_ptr<QuotesReader> reader_;
  bool unusable_ = false;
  std::unique_ptr<Brask::Platform::TimerControl> timer_;
};

}  // namespace Quotes
