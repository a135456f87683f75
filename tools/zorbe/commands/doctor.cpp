// SPDX-License-Identifier: MIT
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands/finding.h"
#include "output/columns.h"
#include "output/json.h"

namespace Zorbe::Tool {

namespace {

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::kOk:
      return "ok";
    case Severity::kNote:
      return "note";
    case Severity::kProblem:
      break;
  }
  return "problem";
}

Tone toneOf(Severity severity) {
  if (severity == Severity::kOk) return Tone::kGood;
  return severity == Severity::kNote ? Tone::kWarning : Tone::kBad;
}

void printText(const Findings& findings, bool coloured) {
  Columns columns;
  for (const Finding& finding : findings) {
    columns.add(
        {{nameOf(finding.severity), toneOf(finding.severity)}, {finding.check}, {finding.what}});
    if (!finding.fix.empty()) columns.add({{""}, {""}, {"-> " + finding.fix}});
  }
  columns.print(std::cout, coloured);
}

void printJson(const Findings& findings, bool healthy) {
  Json list = Json::array();
  for (const Finding& finding : findings) {
    list.push_back({{"severity", nameOf(finding.severity)},
                    {"check", finding.check},
                    {"what", finding.what},
                    {"fix", finding.fix.empty() ? Json() : Json(finding.fix)}});
  }
  print({{"healthy", healthy}, {"findings", list}});
}

}  // namespace

int doctor(Context& context) {
  const Survey found = survey(context.handler, BadBase::kReport);
  Findings findings;
  checkBase(found.base, findings);
  checkNamespace(context.namespaceError, findings);
  checkInotify(found.tables().size(), findings);
  checkTables(found, findings);
  const bool healthy = std::none_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == Severity::kProblem;
  });
  if (context.json) {
    printJson(findings, healthy);
  } else {
    printText(findings, context.coloured);
  }
  return healthy ? kYes : kNo;
}

}  // namespace Zorbe::Tool
