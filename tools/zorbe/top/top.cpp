// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>

#include "commands/monitoring_commands.h"
#include "top/model.h"
#include "top/screen.h"
#include "top/terminal.h"

namespace Zorbe::Tool {

namespace {

using Clock = TopModel::Clock;

// Rounded up: a wait that ends early would only be followed by another one.
std::chrono::milliseconds until(Clock::time_point time) {
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(time - Clock::now());
  return std::max(rest, std::chrono::milliseconds(0));
}

}  // namespace

int top(Context& context, double intervalSeconds) {
  const auto interval =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(intervalSeconds));
  Terminal terminal;
  TopModel model(context.handler);
  TopScreen screen(model, context.coloured);
  model.sample();
  Clock::time_point next = Clock::now() + interval;
  for (bool isChanged = true;;) {
    if (isChanged) terminal.draw(screen.frame(terminal.size()));
    const TerminalEvents events = terminal.wait(until(next));
    const TopScreen::Wish wish = screen.handleKeys(events.keys);
    if (events.ends || wish == TopScreen::Wish::kQuit) return kYes;
    const bool isDue = wish == TopScreen::Wish::kSample || Clock::now() >= next;
    if (isDue) model.sample();
    if (isDue) next = Clock::now() + interval;
    isChanged = isDue || events.redraw || !events.keys.empty();
  }
}

}  // namespace Zorbe::Tool
