// SPDX-License-Identifier: MIT
//
// Turns the rows of a run into a table on the terminal and, when asked, into the document and
// its pictures.
// usage: bench_report <results> [<template of the document> <folder of the documents>]
//
// In the template, a line "@table GROUP WHAT IT MEASURES@" stands for the table of that group,
// "@summary@" for every goal and whether it was met, "@machine@" for the machine and the day.
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <stdexcept>

#include "report/format.h"
#include "report/goal.h"
#include "report/plot.h"

namespace Bench {

namespace {

void print(const Table& table) {
  std::vector<size_t> widths;
  for (const auto& line : table) {
    widths.resize(std::max(widths.size(), line.size()));
    for (size_t column = 0; column < line.size(); ++column) {
      widths[column] = std::max(widths[column], line[column].size());
    }
  }
  for (const auto& line : table) {
    for (size_t column = 0; column < line.size(); ++column) {
      std::cout << "  " << std::left << std::setw(static_cast<int>(widths[column])) << line[column];
    }
    std::cout << "\n";
  }
}

std::string markdown(const Table& table) {
  std::string text;
  for (const auto& line : table) {
    text += "|";
    for (const std::string& cell : line) text += " " + cell + " |";
    text += "\n";
    if (&line != &table.front()) continue;
    for (size_t column = 0; column < line.size(); ++column) text += "|---";
    text += "|\n";
  }
  return text;
}

// The value of a line "name : value" of /proc/cpuinfo.
std::string processorSays(const std::string& name) {
  std::ifstream in("/proc/cpuinfo");
  for (std::string line; std::getline(in, line);) {
    const size_t colon = line.find(": ");
    if (line.rfind(name, 0) == 0 && colon != std::string::npos) return line.substr(colon + 2);
  }
  return "";
}

std::string machine(const std::vector<Row>& rows) {
  utsname system{};
  if (::uname(&system) != 0) throw std::runtime_error("uname() failed");
  const std::string release = system.release;
  const std::time_t now = std::time(nullptr);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%d", std::gmtime(&now));
  std::string text = processorSays("model name");
  for (const Row& row : rowsOf(rows, "codec-clock")) {
    text += " at " + threeDigits(row.value.median) + " GHz";
  }
  text += ", " + std::to_string(::sysconf(_SC_NPROCESSORS_ONLN)) + " CPUs";
  if (processorSays("flags").find(" hypervisor") != std::string::npos) text += ", virtual machine";
  text += ", Linux " + release.substr(0, release.find('.', release.find('.') + 1));
  return text + ", g++ " + std::to_string(__GNUC__) + ", preset `bench`, " + date;
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  std::ofstream out(path);
  out << content;
  if (!out.flush()) throw std::runtime_error("cannot write " + path.string());
}

// What a line "@table GROUP WHAT IT MEASURES@" says; no group for any other line.
struct TableLine {
  std::string group;
  std::string measured;
};

TableLine tableLineOf(const std::string& line) {
  const std::string table = "@table ";
  if (line.rfind(table, 0) != 0 || line.back() != '@') return {};
  const std::string text = line.substr(table.size(), line.size() - table.size() - 1);
  const size_t space = text.find(' ');
  if (space == std::string::npos) throw std::runtime_error("not said what it measures: " + line);
  return {text.substr(0, space), text.substr(space + 1)};
}

// "[Many readers](#many-readers)"
std::string linkTo(const std::string& heading) {
  std::string anchor;
  for (const char c : heading) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0)
      anchor += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c == ' ' || c == '-') anchor += '-';
  }
  return "[" + heading + "](#" + anchor + ")";
}

// What each group measures, with a link to the chapter of the template that shows it.
std::vector<std::pair<std::string, std::string>> titlesOf(const std::string& form) {
  std::ifstream in(form);
  std::vector<std::pair<std::string, std::string>> titles;
  std::string chapter;
  for (std::string line; std::getline(in, line);) {
    const std::string heading = "## ";
    if (line.rfind(heading, 0) == 0) chapter = linkTo(line.substr(heading.size()));
    const auto [group, measured] = tableLineOf(line);
    if (!group.empty()) titles.emplace_back(group, chapter + ": " + measured);
  }
  return titles;
}

std::string document(const std::string& form, const std::vector<Row>& rows) {
  std::ifstream in(form);
  if (!in) throw std::runtime_error("cannot read " + form);
  std::string text;
  for (std::string line; std::getline(in, line);) {
    if (const std::string group = tableLineOf(line).group; !group.empty()) {
      const std::vector<Row> found = rowsOf(rows, group);
      text += found.empty() ? "Not measured in this run.\n" : markdown(tableOf(found));
    } else if (line == "@summary@") {
      text += summaryText(rows) + "\n\n" + markdown(summaryOf(rows, titlesOf(form)));
    } else if (line == "@machine@") {
      text += machine(rows) + "\n";
    } else {
      text += line + "\n";
    }
  }
  return text;
}

std::vector<Row> underLoad(std::vector<Row> rows, const std::string& load) {
  rows.erase(
      std::remove_if(rows.begin(), rows.end(), [&](const Row& row) { return row.load != load; }),
      rows.end());
  return rows;
}

void writeDocuments(const std::string& form, const std::filesystem::path& folder,
                    const std::vector<Row>& rows) {
  writeFile(folder / "performance.md", document(form, rows));
  const std::filesystem::path plots = folder / "performance";
  std::filesystem::create_directories(plots);
  const auto plot = [&](const char* file, const char* title, const std::vector<Row>& shown) {
    writeFile(plots / file, barPlot(title, shown));
  };
  plot("alternatives.svg", "One round with one reader, on one CPU",
       underLoad(rowsOf(rows, "alternatives"), "one CPU"));
  plot("fan-out.svg", "One round, per reader, by the number of readers", rowsOf(rows, "fan-out"));
  plot("loop-event.svg", "One descriptor event, by the number of watched descriptors",
       rowsOf(rows, "loop-event"));
  plot("table-get.svg", "One get, by the number of records", rowsOf(rows, "table-get"));
  plot("table-slowest.svg", "The slowest read, by what the writer does",
       rowsOf(rows, "table-slowest"));
  plot("checksum.svg", "Checksum, by the number of bytes", rowsOf(rows, "codec-checksum"));
}

void run(int argc, char** argv) {
  if (argc != 2 && argc != 4) throw std::runtime_error("see the head of report.cpp for usage");
  std::ifstream in(argv[1]);
  if (!in) throw std::runtime_error(std::string("cannot read ") + argv[1]);
  const std::vector<Row> rows = readRows(in);
  for (const std::string& group : groupsOf(rows)) {
    std::cout << "\n" << group << "\n";
    print(tableOf(rowsOf(rows, group)));
  }
  std::cout << "\n" << summaryText(rows) << "\n";
  if (argc == 4) writeDocuments(argv[2], argv[3], rows);
}

}  // namespace

}  // namespace Bench

int main(int argc, char** argv) {
  try {
    Bench::run(argc, argv);
    return EXIT_SUCCESS;
  } catch (const std::exception& problem) {
    std::cerr << argv[0] << ": " << problem.what() << "\n";
    return EXIT_FAILURE;
  }
}
