// SPDX-License-Identifier: MIT
#pragma once

namespace Zorbe {

/// The most records that one event reads from a connection, so that a peer that never stops
/// sending cannot occupy the loop. They are handled as if the socket were empty; the loop is
/// level-triggered, so the rest causes the next event. The default buffer of a socket holds
/// fewer than 300 records.
constexpr unsigned kRecordsPerEvent = 1024;

}  // namespace Zorbe
