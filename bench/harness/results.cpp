// SPDX-License-Identifier: MIT
#include "harness/results.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>

namespace Bench {

namespace {

constexpr size_t kFields = 13;

std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> parts(1);
  for (const char character : line) {
    if (character == '\t') {
      parts.emplace_back();
    } else {
      parts.back() += character;
    }
  }
  return parts;
}

Spread spreadFrom(const std::vector<std::string>& parts, size_t first) {
  return {std::stod(parts[first]), std::stod(parts[first + 1]), std::stod(parts[first + 2])};
}

std::ostream& operator<<(std::ostream& out, const Spread& spread) {
  return out << spread.median << '\t' << spread.low << '\t' << spread.high;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Row& row) {
  return out << row.group << '\t' << row.subject << '\t' << row.load << '\t' << row.unit << '\t'
             << row.value << '\t' << row.baseline << '\t' << row.ratio << '\t' << row.goal
             << "\trow\n";
}

std::vector<Row> readRows(std::istream& in) {
  std::vector<Row> rows;
  for (std::string line; std::getline(in, line);) {
    const std::vector<std::string> parts = split(line);
    if (parts.size() != kFields) throw std::runtime_error("not a row of results: " + line);
    rows.push_back({parts[0], parts[1], parts[2], parts[3], spreadFrom(parts, 4), parts[7],
                    spreadFrom(parts, 8), parts[11]});
  }
  return rows;
}

Results::Results(int argc, char** argv) {
  for (int each = 1; each < argc; ++each) {
    if (std::strcmp(argv[each], "--quick") == 0) quick_ = true;
    if (std::strcmp(argv[each], "--results") == 0 && each + 1 < argc) path_ = argv[++each];
  }
}

void Results::add(const Row& row) {
  if (path_.empty()) {
    std::cout << row << std::flush;
    return;
  }
  std::ofstream out(path_, std::ios::app);
  out << row;
  if (!out.flush()) throw std::runtime_error("cannot write to " + path_);
}

void Results::addMedians(const std::string& group, const std::string& load, const std::string& unit,
                         const std::vector<Outcome>& outcomes, const std::string& goal) {
  for (const Outcome& outcome : outcomes) {
    const bool first = &outcome == &outcomes.front();
    add({group, outcome.name, load, unit, outcome.median, first ? "" : outcomes.front().name,
         outcome.medianRatio, first ? "" : goal});
  }
}

void Results::addP99s(const std::string& group, const std::string& load, const std::string& unit,
                      const std::vector<Outcome>& outcomes, const std::string& goal) {
  for (const Outcome& outcome : outcomes) {
    const bool first = &outcome == &outcomes.front();
    add({group, outcome.name, load, unit, outcome.p99, first ? "" : outcomes.front().name,
         outcome.p99Ratio, first ? "" : goal});
  }
}

void Results::skip(const std::string& group, const std::string& subject, const std::string& why) {
  std::cerr << "SKIPPED " << group << ", " << subject << ": " << why << "\n";
  add({group, subject, "skipped: " + why, "", {}, "", {}, ""});
}

}  // namespace Bench
