// SPDX-License-Identifier: MIT
#include <zorbe/counters.h>

#include <ostream>

#include "counters/counter_text.h"

namespace Zorbe::Reader {

std::string Counters::toString() const {
  return counterText("('Zorbe::Reader::Counters', {", {{"occupiedSlots", occupiedSlots},
                                                       {"usedLookaside", usedLookaside},
                                                       {"chainRestarts", chainRestarts},
                                                       {"slotResizes", slotResizes},
                                                       {"syncerYields", syncerYields},
                                                       {"syncerSequence", syncerSequence},
                                                       {"conquerRestarts", conquerRestarts},
                                                       {"conquerProbes", conquerProbes},
                                                       {"conquerEmpty", conquerEmpty},
                                                       {"conquerEnd", conquerEnd},
                                                       {"conquerKicks", conquerKicks},
                                                       {"conquerTombed", conquerTombed},
                                                       {"conquerNotified", conquerNotified},
                                                       {"conquerYields", conquerYields},
                                                       {"conquerConnections", conquerConnections},
                                                       {"conquerSequence", conquerSequence},
                                                       {"keyShadowMismatch", keyShadowMismatch},
                                                       {"remountTimeouts", remountTimeouts},
                                                       {"invalidIterHints", invalidIterHints},
                                                       {"shadowWrites", shadowWrites},
                                                       {"shadowResyncs", shadowResyncs},
                                                       {"keyMoves", keyMoves},
                                                       {"inotifyTriggers", inotifyTriggers}});
}

std::ostream& operator<<(std::ostream& out, const Counters& counters) {
  const std::string text = counters.toString();
  return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace Zorbe::Reader
