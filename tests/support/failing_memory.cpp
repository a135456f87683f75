// SPDX-License-Identifier: MIT
#include "support/failing_memory.h"

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "fault/fault.h"

namespace Zorbe::Test::Memory {
namespace {

// Threads of the library allocate, too.
std::atomic<long> alive{0};
std::atomic<bool> failing{false};
std::atomic<bool> lasts{false};
std::atomic<unsigned long> left{0};
std::atomic<unsigned long> failed{0};
std::atomic<int> errorLeft{0};

bool fails() {
  if (!failing || Fault::isBypassed()) return false;
  if (left > 1) {
    --left;
    return false;
  }
  failing = lasts.load();
  ++failed;
  return true;
}

// Precedes each block.
struct alignas(std::max_align_t) Head {
  bool counted;
};

void* allocate(std::size_t size) {
  if (fails()) throw std::bad_alloc();
  void* const whole = std::malloc(sizeof(Head) + size);
  if (whole == nullptr) throw std::bad_alloc();
  Head* const head = new (whole) Head{!Fault::isBypassed()};
  if (head->counted) ++alive;
  if (errorLeft != 0 && head->counted) errno = errorLeft;
  return head + 1;
}

void release(void* block) {
  if (block == nullptr) return;
  Head* const head = static_cast<Head*>(block) - 1;
  if (head->counted) --alive;
  std::free(head);
}

}  // namespace

void fail(unsigned long nth, Failing which) {
  left = nth;
  lasts = which == Failing::kAlways;
  failed = 0;
  failing = true;
}

unsigned long stopFailing() {
  failing = false;
  return failed;
}

void leaveErrno(int error) {
  errorLeft = error;
}

long blocks() {
  return alive;
}

}  // namespace Zorbe::Test::Memory

namespace Memory = Zorbe::Test::Memory;

#pragma GCC visibility push(default)

void* operator new(std::size_t size) {
  return Memory::allocate(size);
}
void* operator new[](std::size_t size) {
  return Memory::allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Memory::allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept {
  Memory::release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
  Memory::release(block);
}
void operator delete[](void* block) noexcept {
  Memory::release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  Memory::release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  Memory::release(block);
}

#pragma GCC visibility pop
