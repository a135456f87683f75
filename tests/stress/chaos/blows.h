// SPDX-License-Identifier: MIT
#pragma once

#include <deque>
#include <string>

#include "stress/chaos/crew.h"
#include "stress/chaos/storm.h"
#include "support/random.h"

namespace Zorbe::Test::Chaos {

/// What a seed decides: who is hit next, and how.
class Blows {
 public:
  Blows(Crew& crew, std::string directory, uint64_t seed, Report& report);

  /// What there is for some time.
  struct Span {
    bool single;         ///< one blow at a time
    bool sparingWriter;  ///< no writer is killed or restarted
  };

  /// A few blows, while the writer publishes. Afterwards no writer is stopped.
  void burst(Span span);

  /// The directory holds the files of this incarnation.
  bool isInPlace(uint32_t fenix) const;

  /// The latest, a line each.
  std::string history() const;

 private:
  struct Kind {
    const char* name;
    unsigned weight;
    Member* (Blows::*strike)();  ///< returns who was hit, or null when nobody can be
  };
  static const Kind kinds[];

  void strike();
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

  Crew& crew_;
  std::string directory_;
  Simulation::Random random_;
  Report& report_;
  bool sparingWriter_ = false;
  std::deque<std::string> history_;
};

}  // namespace Zorbe::Test::Chaos
