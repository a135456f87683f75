// SPDX-License-Identifier: MIT
#include <zorbe/root_path.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

#include "commands/finding.h"
#include "output/columns.h"
#include "output/json.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

const char* nameOf(Severity severity) {
  switch (severity) {
    case Severity::kOk:
      return "ok";
    case Severity::kNote:
      return "note";
    case Severity::kProblem:
      return "problem";
    case Severity::kCritical:
      break;
  }
  return "critical";
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
    Json subjects = Json::array();
    for (const std::string& subject : finding.subjects) subjects.push_back(utf8(subject));
    list.push_back({{"severity", nameOf(finding.severity)},
                    {"check", finding.check},
                    {"what", finding.what},
                    {"fix", finding.fix.empty() ? Json() : Json(finding.fix)},
                    {"subjects", subjects}});
  }
  print({{"healthy", healthy}, {"findings", list}});
}

// A directory that several paths lead to is looked at once, by the path without a symbolic link.
Tables tablesToCheck(const Survey& survey) {
  std::set<Identity> seen;
  Tables tables;
  const auto add = [&](const Table& table) {
    if (!table.exists() && table.directory.error == 0 && table.socket) return;
    if (table.directory.identity && !seen.insert(*table.directory.identity).second) return;
    tables.push_back(&table);
  };
  if (survey.base.exists()) add(survey.base);
  for (const bool link : {false, true}) {
    for (const Table& table : survey.directories) {
      if (table.directory.link == link) add(table);
    }
  }
  return tables;
}

void check(Context& context, const Table& base, const Tables& tables, Findings& findings) {
  checkBase(base, findings);
  checkStorage(base, findings);
  checkNamespace(context.namespaceError, findings);
  checkInotify(tables.size(), findings);
  const std::size_t before = findings.size();
  checkWriters(tables, findings);
  checkTables(context.handler, tables, findings);
  checkModes(tables, findings);
  if (findings.size() == before) {
    findings.push_back({Severity::kOk, "tables", counted(tables.size(), "table"), ""});
  }
  std::stable_partition(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity == Severity::kCritical;
  });
}

}  // namespace

int doctor(Context& context, const std::optional<std::string>& name) {
  Findings findings;
  if (name) {
    const Table table = inspect(context.handler, *name);
    if (!table.isThere()) return reportMissing(table);
    Table base;
    base.path = RootPath(context.handler, "", false).path;
    base.directory = readListing(context.handler, base.path);
    check(context, base, {&table}, findings);
  } else {
    const Survey found = survey(context.handler, BadBase::kReport);
    check(context, found.base, tablesToCheck(found), findings);
  }
  const bool healthy = std::none_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.severity >= Severity::kProblem;
  });
  if (context.json) {
    printJson(findings, healthy);
  } else {
    printText(findings, context.coloured);
  }
  return healthy ? kYes : kNo;
}

}  // namespace Zorbe::Tool
