// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "finding.h"
#include "json.h"
#include "paint.h"

namespace Zorbe::Tool {

namespace {

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::ok:
      return "ok";
    case Severity::note:
      return "note";
    case Severity::problem:
      break;
  }
  return "problem";
}

Tone toneOf(Severity severity) {
  if (severity == Severity::ok) return Tone::good;
  return severity == Severity::note ? Tone::warning : Tone::bad;
}

void printText(const Findings& findings, bool coloured) {
  Columns columns;
  for (const Finding& finding : findings) {
    columns.add(
        {{nameOf(finding.severity), toneOf(finding.severity)}, {finding.check}, {finding.what}});
    if (!finding.mend.empty()) columns.add({{""}, {""}, {"-> " + finding.mend}});
  }
  columns.print(std::cout, coloured);
}

void printJson(const Findings& findings, bool healthy) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"severity", nameOf(finding.severity)},
                    {"check", finding.check},
                    {"what", finding.what},
                    {"mend", finding.mend.empty() ? Json() : Json(finding.mend)}});
  }
  print({{"healthy", healthy}, {"findings", list}});
}

}  // namespace

int doctor(Context& context) {
  const Survey found = survey(context.handler);
  Findings findings;
  checkBase(found.base, findings);
  checkNamespace(context.namespaceTrouble, findings);
  checkInotify(found.tables().size(), findings);
  checkTables(found, findings);
  const bool healthy = std::none_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == Severity::problem;
  });
  if (context.json) {
    printJson(findings, healthy);
  } else {
    printText(findings, context.coloured);
  }
  return healthy ? yes : no;
}

}  // namespace Zorbe::Tool
