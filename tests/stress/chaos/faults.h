// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <string>
#include <utility>

#include "stress/chaos/processes.h"
#include "stress/chaos/stress_run.h"
#include "support/random.h"

namespace Zorbe::Test::Chaos {

/// The faults, as a seed decides them.
class Faults {
 public:
  Faults(Processes& processes, std::string directory, uint64_t seed, Report& report);

  /// The kind of faults for some time.
  struct Span {
    bool single;         ///< one fault at a time
    bool sparingWriter;  ///< no writer is killed or restarted
  };

  /// A few faults, while the writer publishes. Afterwards no writer is stopped.
  void burst(Span span);

  /// The latest, a line each.
  std::string history() const;

 private:
  struct Kind {
    const char* name;
    unsigned weight;
    Member* (Faults::*inject)();  ///< returns the process, or null when none fits
  };
  static const Kind kKinds[];

  void inject();
  const Kind& draw();
  void pause(unsigned mostMilliseconds);
  void endStopOfWriter();
  void note(const char* kind, const Member& hit);

  Member* pickReader(unsigned first, bool (*fits)(const Member&));
  Member* pickWriter();
  Member* killReader();
  Member* killWriter();
  Member* restartReader();
  Member* restartWriter();
  Member* stopReader();
  Member* continueReader();
  Member* stopWriter();
  Member* startCompetitor();
  Member* killCompetitor();
  Member* removeDirectory();

  void kill(Member& member);

  Processes& processes_;
  std::string directory_;
  Random random_;
  Report& report_;
  bool sparingWriter_ = false;
  std::deque<std::string> history_;
};

}  // namespace Zorbe::Test::Chaos
