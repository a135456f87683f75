// SPDX-License-Identifier: MIT
#include <zorbe/counters.h>

#include <ostream>

#include "counters/counter_text.h"

namespace Zorbe::Writer {

std::string Counters::toString() const {
  return counterText("('Zorbe::Writer::Counters', ** {",
                     {{"slotAllocs", slotAllocs},
                      {"slotDeallocs", slotDeallocs},
                      {"conquerTombstones", conquerTombstones},
                      {"conquerNotifications", conquerNotifications},
                      {"conquerCompactions", conquerCompactions},
                      {"conquerPrunings", conquerPrunings},
                      {"conquerSequence", conquerSequence},
                      {"kicksIssued", kicksIssued},
                      {"connectedReaders", connectedReaders},
                      {"directWrite", directWrite},
                      {"directCommit", directCommit},
                      {"inotifyTriggers", inotifyTriggers}});
}

std::ostream& operator<<(std::ostream& out, const Counters& counters) {
  const std::string text = counters.toString();
  return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace Zorbe::Writer
