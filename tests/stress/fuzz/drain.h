// SPDX-License-Identifier: MIT
#pragma once

#include "support/bare_socket.h"

#include <cerrno>
#include <cstddef>
#include <deque>
#include <string>
#include <utility>
#include <vector>

namespace Zorbe::Test::Fuzz {

/// What one end of a connection has yet to read, call by call, as socket(7) and unix(7) have
/// it for sequenced packets.
struct Unread {
  std::deque<std::string> records;
  bool ended = false;           // the other end has hung up
  bool reset = false;           // and had not read everything: told once, before anything else
  unsigned callsToFailure = 0;  // the call of that number fails, 0: none does
  int error = 0;

  /// The next recv(2): what it returns, or an errno as a negative number.
  long receive(std::string& record) {
    if (callsToFailure != 0 && --callsToFailure == 0) return -error;
    if (std::exchange(reset, false)) return -ECONNRESET;
    if (records.empty()) return ended ? 0 : -EAGAIN;
    record = records.front();
    records.pop_front();
    return static_cast<long>(record.size());
  }
};

/// All records that have arrived, also when the sender has closed without reading what was
/// sent to it, which is told first.
inline std::vector<std::string> allReceived(BareSocket& socket) {
  std::vector<std::string> records = socket.received();
  return records.empty() ? socket.received() : records;
}

}  // namespace Zorbe::Test::Fuzz
