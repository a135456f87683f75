// SPDX-License-Identifier: MIT
#include "memory.h"

#include <algorithm>

namespace Zorbe::Model {

void Memory::store(Location location, Value value, bool release) {
  byLocation_[static_cast<size_t>(location)].push_back(size());
  stores_.push_back({location, value, release});
}

Value Memory::at(Location location, int last) const {
  const std::vector<int>& stores = storesTo(location);
  for (auto store = stores.rbegin(); store != stores.rend(); ++store) {
    if (*store <= last) return (*this)[*store].value;
  }
  return 0;
}

Value Memory::makeFile(std::string name, Value generation, Value entries, Value first) {
  const auto magic = static_cast<Location>(byLocation_.size());
  files_.push_back({std::move(name), generation, entries, first, magic});
  byLocation_.resize(byLocation_.size() + 1 + entries);
  return static_cast<Value>(files_.size() - 1);
}

Memory Memory::killedAt(int length, const std::vector<int>& early) const {
  Memory left;
  left.files_ = files_;
  left.byLocation_.resize(byLocation_.size());
  left.setUp = setUp;
  const auto copy = [&](int i) {
    left.store((*this)[i].location, (*this)[i].value, (*this)[i].release);
  };
  for (int i = 0; i < length; ++i) copy(i);
  for (const int i : early) copy(i);
  for (Operation operation : operations) {
    if (operation.begin > length || (operation.begin == length && operation.end != length)) break;
    if (operation.end > length) operation.end = Operation::kUnfinished;
    if (operation.logged >= length) operation.logged = Operation::kUnfinished;
    left.operations.push_back(operation);
  }
  std::copy_if(quiet.begin(), quiet.end(), std::back_inserter(left.quiet),
               [&](int i) { return i <= length; });
  return left;
}

std::string Memory::nameOf(Location location) const {
  static const char* const kOnce[] = {"published",     "indexGen", "logGen",     "capacity",
                                      "size of slots", "buckets",  "log name 0", "log name 1",
                                      "img.seq",       "img.slot", "img.guard"};
  if (location < At::kImageWord) return kOnce[location];
  if (location < At::kSlots) return "img.w" + std::to_string(location - At::kImageWord);
  if (location < At::kFiles) {
    const int slot = (location - At::kSlots) / (1 + kMaxWords);
    const int word = (location - At::kSlots) % (1 + kMaxWords);
    return (word == 0 ? "guard" : "w" + std::to_string(word - 1)) + "[" + std::to_string(slot) +
           "]";
  }
  for (const File& file : files_) {
    if (location == file.magic) return file.name + ".magic";
    if (location < file.entry(file.size) && location > file.magic) {
      return file.name + "[" + std::to_string(location - file.magic - 1) + "]";
    }
  }
  return "?";
}

}  // namespace Zorbe::Model
