// SPDX-License-Identifier: MIT
#include <zorbe/util.h>

#include <tuple>

#include "commands/finding.h"
#include "host/spelling.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

constexpr std::size_t kEnumerated = 5;

// The path of a table is that of the base directory, a slash, and its name.
std::string baseOf(const Table& table) {
  if (table.name.empty()) return absolutePath(table.path);
  return absolutePath(table.path.substr(0, table.path.size() - table.name.size()));
}

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
  }
}

void checkFile(const Table& table, const Entry& entry, Findings& findings) {
  const std::string path = word(table.path + "/" + entry.name);
  if (entry.ours && !entry.isFile()) {
    findings.push_back({Severity::kProblem, "file", path + " is a " + entry.kind() + ", not a file",
                        "stop the writer and remove it"});
  }
}

// The library reads the number at the begin, and takes anything else for 0, which is no id.
void checkFenix(Handler& handler, const Table& table, Findings& findings) {
  const Entry* const fenix = table.directory.find("fenix");
  if (fenix == nullptr || !fenix->isFile()) return;
  const std::string path = table.path + "/fenix";
  std::string content = Util::fileRead(handler, path, false);
  if (!content.empty() && content.back() == '\n') content.pop_back();
  if (std::to_string(table.fenix) == content && table.fenix != 0) return;
  findings.push_back({Severity::kProblem, "fenix",
                      word(path) + (content.empty() ? " is empty, or cannot be read"
                                                    : " holds no incarnation id: " +
                                                          printable(content.substr(0, 80))),
                      "stop the writer, " + removalOf(table) + ", and start the writer again"});
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
                      "stop its writer, " + removalOf(table) + ", and start the writer again"});
}

}  // namespace

std::string removalOf(const Table& table) {
  return "zorbe remove --root " + shellWord(baseOf(table)) + " -- " + shellWord(table.name);
}

std::string enumerated(const std::vector<std::string>& words) {
  std::string text;
  for (std::size_t i = 0; i < words.size() && i < kEnumerated; ++i) {
    text += (i == 0 ? "" : ", ") + words[i];
  }
  if (words.size() > kEnumerated) {
    text += " and " + std::to_string(words.size() - kEnumerated) + " more";
  }
  return text;
}

void checkTables(Handler& handler, const Tables& tables, Findings& findings) {
  for (const Table* table : tables) {
    checkName(*table, findings);
    checkDirectory(*table, findings);
    for (const Entry& entry : table->directory.entries) checkFile(*table, entry, findings);
    checkFenix(handler, *table, findings);
    checkCorruption(*table, findings);
  }
}

}  // namespace Zorbe::Tool
