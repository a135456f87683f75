// SPDX-License-Identifier: MIT
#include <tuple>

#include "commands/finding.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

constexpr unsigned kDirectoryMode = 0777;
constexpr unsigned kFileMode = 0666;

// The files that the library itself writes, and opens to every user.
constexpr const char* kLibraryFiles[] = {"fenix", "last-owner", "corruption-detected"};

void checkName(const Table& table, Findings& findings) {
  if (table.socket) return;
  findings.push_back({Severity::kProblem, "name",
                      word(table.name) + ": the last component is longer than 91 bytes, too long "
                                         "for a socket name: it can have no writer",
                      "choose a shorter name, then rm -r " + shellWord(table.path)});
}

void checkDirectory(const Table& table, Findings& findings) {
  const Listing& directory = table.directory;
  const std::string path = word(table.path);
  if (!directory.present && table.writer) {
    findings.push_back({Severity::kProblem, "directory",
                        word(table.name) + " has a writer, but no directory " + path,
                        "restart the writer"});
  } else if (directory.error != 0) {
    findings.push_back({Severity::kProblem, "directory",
                        path + " cannot be read: " + reason(directory.error),
                        "as its owner: chmod 0777 " + shellWord(table.path)});
  } else if (directory.present && directory.mode != kDirectoryMode) {
    findings.push_back({Severity::kProblem, "mode",
                        path + " has mode " + octal(directory.mode) +
                            ": other users' writers and readers may be kept out",
                        "as its owner: chmod 0777 " + shellWord(table.path)});
  }
}

void checkFile(const Table& table, const Entry& entry, Findings& findings) {
  const std::string path = word(table.path + "/" + entry.name);
  if (entry.ours && !entry.isFile()) {
    findings.push_back({Severity::kProblem, "file", path + " is a " + entry.kind() + ", not a file",
                        "stop the writer and remove it"});
    return;
  }
  for (const char* name : kLibraryFiles) {
    if (entry.name != name || entry.mode() == kFileMode) continue;
    findings.push_back(
        {Severity::kProblem, "mode",
         path + " has mode " + octal(entry.mode()) + ": other users' processes may be kept out",
         "as its owner: chmod 0666 " + shellWord(table.path + "/" + entry.name)});
  }
}

bool isOlder(const Entry& a, const Entry& b) {
  const timespec& x = a.status.st_mtim;
  const timespec& y = b.status.st_mtim;
  return std::tie(x.tv_sec, x.tv_nsec) < std::tie(y.tv_sec, y.tv_nsec);
}

// A table that was created again after the marker has a newer fenix file.
void checkCorruption(const Table& table, Findings& findings) {
  const Entry* const marker = table.directory.find("corruption-detected");
  if (marker == nullptr) return;
  const std::string path = word(table.path + "/corruption-detected");
  const Entry* const fenix = table.directory.find("fenix");
  if (fenix != nullptr && isOlder(*marker, *fenix)) {
    findings.push_back({Severity::kProblem, "corruption",
                        path + " is stale: the table was created again after it",
                        "rm " + shellWord(table.path + "/" + marker->name)});
    return;
  }
  findings.push_back({Severity::kProblem, "corruption",
                      word(table.name) + " is marked as corrupt: " + printable(table.corruption),
                      "stop its writer, zorbe remove -- " + shellWord(table.name) +
                          ", and start the writer again"});
}

void checkTable(const Table& table, Findings& findings) {
  checkDirectory(table, findings);
  for (const Entry& entry : table.directory.entries) checkFile(table, entry, findings);
  checkCorruption(table, findings);
}

}  // namespace

void checkTables(const Survey& survey, Findings& findings) {
  const std::size_t before = findings.size();
  if (survey.base.exists()) checkTable(survey.base, findings);
  for (const Table& table : survey.directories) {
    checkName(table, findings);
    if (table.exists() || table.directory.error != 0) checkTable(table, findings);
  }
  if (findings.size() != before) return;
  findings.push_back(
      {Severity::kOk, "tables", std::to_string(survey.tables().size()) + " tables", ""});
}

}  // namespace Zorbe::Tool
