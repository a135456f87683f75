// SPDX-License-Identifier: MIT
//
// The model checker of the table's protocol: see docs/verification/model.md.
#include <chrono>
#include <iostream>

#include "scenario.h"

namespace Zorbe::Model {

namespace {

class Program {
 public:
  explicit Program(bool longForm) : long_(longForm) {}

  int list() const {
    for (const Scenario& s : scenarios())
      std::cout << "scenario " << s.name << ": " << s.text << '\n';
    for (const MistakeInfo& m : mistakes())
      std::cout << "mistake " << m.name << ": " << m.text << '\n';
    return 0;
  }

  bool holds(const Scenario& scenario) {
    Figures figures;
    const auto begin = std::chrono::steady_clock::now();
    const Finding finding = explore(scenario, scenario.protocol, killsOf(scenario), figures);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::cout << scenario.name << ": " << killsOf(scenario) << " kills, " << figures.histories
              << " histories, " << figures.runs << " runs, " << figures.states << " states, "
              << took.count() << " s\n"
              << std::flush;
    add(figures);
    if (finding.what.empty()) return true;
    std::cout << "violated: " << finding.what << '\n' << finding.trace << std::flush;
    return false;
  }

  bool finds(const MistakeInfo& mistake) {
    const Scenario& scenario = scenarioNamed(mistake.scenario);
    Protocol protocol = scenario.protocol;
    protocol.mistake = mistake.mistake;
    Figures figures;
    const Finding finding = explore(scenario, protocol, killsOf(scenario), figures);
    add(figures);
    std::cout << mistake.name << " in " << scenario.name << ": "
              << (finding.what.empty() ? "NOT FOUND" : finding.what) << " (" << figures.histories
              << " histories)\n"
              << std::flush;
    return !finding.what.empty();
  }

  int all() {
    int wrong = 0;
    for (const Scenario& scenario : scenarios()) wrong += holds(scenario) ? 0 : 1;
    int found = 0;
    for (const MistakeInfo& mistake : mistakes()) found += finds(mistake) ? 1 : 0;
    std::cout << scenarios().size() << " scenarios, " << total_.histories << " histories, "
              << total_.states << " states, " << wrong << " violations; " << found << " of "
              << mistakes().size() << " mistakes found\n";
    return wrong == 0 && static_cast<size_t>(found) == mistakes().size() ? 0 : 1;
  }

 private:
  int killsOf(const Scenario& s) const { return long_ ? s.longKills : s.kills; }
  void add(const Figures& figures) {
    total_.histories += figures.histories;
    total_.runs += figures.runs;
    total_.states += figures.states;
  }

  bool long_;
  Figures total_;
};

int usage() {
  std::cerr << "usage: model [--long] [--list | --scenario NAME | --mistake NAME]\n";
  return 2;
}

int runModel(std::vector<std::string> arguments) {
  const bool longForm = !arguments.empty() && arguments[0] == "--long";
  if (longForm) arguments.erase(arguments.begin());
  Program program(longForm);
  if (arguments.empty()) return program.all();
  if (arguments[0] == "--list" && arguments.size() == 1) return program.list();
  if (arguments.size() != 2) return usage();
  if (arguments[0] == "--scenario") return program.holds(scenarioNamed(arguments[1])) ? 0 : 1;
  if (arguments[0] != "--mistake") return usage();
  for (const MistakeInfo& mistake : mistakes()) {
    if (arguments[1] == mistake.name) return program.finds(mistake) ? 0 : 1;
  }
  return usage();
}

}  // namespace
}  // namespace Zorbe::Model

int main(int argc, char** argv) {
  try {
    return Zorbe::Model::runModel({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "model: " << error.what() << '\n';
    return 2;
  }
}
