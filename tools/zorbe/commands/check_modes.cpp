// SPDX-License-Identifier: MIT
#include "commands/finding.h"
#include "output/text.h"

namespace Zorbe::Tool {

namespace {

constexpr unsigned kDirectoryMode = 0777;
constexpr unsigned kFileMode = 0666;
constexpr std::size_t kLongestCommand = 10;  // paths

// The files that the library itself writes, and opens to every user.
constexpr const char* kLibraryFiles[] = {"fenix", "last-owner", "corruption-detected"};

struct Wrong {
  std::string path;
  unsigned mode;
};

std::string commandFor(const std::vector<Wrong>& wrong, unsigned mode) {
  std::string command = "as ";
  command += wrong.size() == 1 ? "its owner: chmod " : "their owners: chmod ";
  command += octal(mode);
  if (wrong.size() > kLongestCommand) return command + " each; --json has all paths";
  for (const Wrong& one : wrong) command += ' ' + shellWord(one.path);
  return command;
}

void add(const std::vector<Wrong>& wrong, const char* kind, unsigned mode, const char* whom,
         Findings& findings) {
  if (wrong.empty()) return;
  Finding finding{Severity::kProblem, "mode", "", commandFor(wrong, mode)};
  std::vector<std::string> words;
  for (const Wrong& one : wrong) {
    finding.subjects.push_back(one.path);
    words.push_back(word(one.path));
  }
  finding.what = wrong.size() == 1 ? words.front() + " has mode " + octal(wrong.front().mode)
                                   : counted(wrong.size(), kind) + " do not have mode " +
                                         octal(mode) + ": " + enumerated(words);
  finding.what += wrong.size() == 1 ? ": " : "; ";
  finding.what += whom + std::string(" may be kept out");
  findings.push_back(std::move(finding));
}

}  // namespace

void checkModes(const Tables& tables, Findings& findings) {
  std::vector<Wrong> directories;
  std::vector<Wrong> files;
  for (const Table* table : tables) {
    if (!table->exists()) continue;
    const Listing& directory = table->directory;
    if (directory.present && directory.error == 0 && directory.mode != kDirectoryMode) {
      directories.push_back({table->path, directory.mode});
    }
    for (const char* name : kLibraryFiles) {
      const Entry* const file = directory.find(name);
      if (file == nullptr || !file->isFile() || file->mode() == kFileMode) continue;
      files.push_back({table->path + "/" + name, file->mode()});
    }
  }
  add(directories, "directory", kDirectoryMode, "other users' writers and readers", findings);
  add(files, "file", kFileMode, "other users' processes", findings);
}

}  // namespace Zorbe::Tool
