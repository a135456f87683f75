// SPDX-License-Identifier: MIT
#include "table/slots.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "harness/processes.h"
#include "memory/layout.h"
#include "table/store.h"

namespace Bench {

namespace {

using Zorbe::Table::Geometry;
using Zorbe::Table::Slot;

Geometry geometry() {
  return {8, sizeof(Record)};
}

}  // namespace

MappedSlots::MappedSlots(const std::string& root, uint64_t slots)
    : bytes_(static_cast<size_t>(geometry().fileBytes(slots))) {
  const std::string path = root + "/" + Zorbe::Table::kSlotsFile;
  const int fd = check(::open(path.c_str(), O_RDONLY | O_CLOEXEC), "open()");
  memory_ = ::mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, fd, 0);
  check(::close(fd), "close()");
  if (memory_ == MAP_FAILED) failed("mmap()");
}

MappedSlots::~MappedSlots() {
  static_cast<void>(::munmap(memory_, bytes_));
}

const char* MappedSlots::at(uint64_t slot) const {
  return static_cast<const char*>(memory_) + geometry().slotsOffset + slot * geometry().slotBytes;
}

uint64_t MappedSlots::guard(uint64_t slot) const {
  return Zorbe::Table::acquire(reinterpret_cast<const Slot*>(at(slot))->guard);
}

uint64_t MappedSlots::key(uint64_t slot) const {
  return Zorbe::Table::acquire(reinterpret_cast<const Slot*>(at(slot))->key[0]);
}

const char* MappedSlots::value(uint64_t slot) const {
  return at(slot) + offsetof(Slot, key) + 8;
}

}  // namespace Bench
