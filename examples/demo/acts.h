// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace Demo {

/// Reports an event of the play.
using Say = std::function<void(const std::string& event)>;

/// A writer that never rests is stopped again and again while readers read. Returns whether they
/// read on each time, and found nothing wrong.
bool playStoppedWriter(const Say& say);

/// A table grows from 1,000 to 1,000,000 records while readers read and follow. Returns whether
/// they found each record in time, and received all of them.
bool playGrowth(const Say& say);

}  // namespace Demo
