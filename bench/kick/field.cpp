// SPDX-License-Identifier: MIT
#include <utility>

#include "harness/processes.h"
#include "kick/scheme.h"

namespace Bench {

struct Field::ReaderProcesses {
  Children readers;
};

// All processes are started before any scheme opens a descriptor, a thread or a lock that
// they would inherit.
Field::Field(Schemes schemes, int readers, int readerCpu) : schemes_(std::move(schemes)) {
  for (const auto& scheme : schemes_) {
    scheme->prepare();
    readers_.push_back(std::make_unique<ReaderProcesses>());
    for (int each = 0; each < readers; ++each) {
      readers_.back()->readers.start(readerCpu, [&scheme] { scheme->read(); });
    }
  }
  for (size_t each = 0; each < schemes_.size(); ++each) {
    schemes_[each]->open(readers);
    readers_[each]->readers.release();
    schemes_[each]->settle();
  }
}

Field::~Field() {
  readers_.clear();
  while (!schemes_.empty()) schemes_.pop_back();
}

Schemes closePair() {
  Schemes schemes;
  schemes.push_back(makeFloor());
  schemes.push_back(makeZorbe());
  return schemes;
}

std::vector<Outcome> race(Field& field, int blocks, int rounds) {
  std::vector<Subject> subjects;
  for (const auto& scheme : field.schemes()) {
    Scheme* const each = scheme.get();
    subjects.push_back(
        {each->name(), [each, rounds] { return timeEach(rounds, [each] { each->round(); }); }});
  }
  return compare(subjects, blocks);
}

}  // namespace Bench
