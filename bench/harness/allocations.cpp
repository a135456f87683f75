// SPDX-License-Identifier: MIT
//
// Replaces the C library's allocator, which operator new uses, too.
#include "harness/allocations.h"

#include <atomic>
#include <cstddef>

#ifndef BENCH_SANITIZED
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
}
#endif

namespace {

std::atomic<long> count{0};
std::atomic<long> freed{0};

}  // namespace

#ifdef BENCH_SANITIZED
constexpr bool kCounts = false;
#else
constexpr bool kCounts = true;

static void note() {
  count.fetch_add(1, std::memory_order_relaxed);
}

extern "C" {

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
  note();
  return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t items, std::size_t size) {
  note();
  return __libc_calloc(items, size);
}

__attribute__((visibility("default"))) void* realloc(void* memory, std::size_t size) {
  note();
  return __libc_realloc(memory, size);
}

__attribute__((visibility("default"))) void free(void* memory) {
  if (memory != nullptr) freed.fetch_add(1, std::memory_order_relaxed);
  __libc_free(memory);
}
}
#endif

namespace Bench {

long allocations() {
  return count.load(std::memory_order_relaxed);
}

long releases() {
  return freed.load(std::memory_order_relaxed);
}

bool countsAllocations() {
  return kCounts;
}

}  // namespace Bench
