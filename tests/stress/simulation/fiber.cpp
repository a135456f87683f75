// SPDX-License-Identifier: MIT
#include "stress/simulation/fiber.h"

#include <cxxabi.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZORBE_ADDRESS_SANITIZER
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define ZORBE_ADDRESS_SANITIZER
#endif
#ifdef ZORBE_ADDRESS_SANITIZER
#include <sanitizer/common_interface_defs.h>
#endif

namespace Zorbe::Test::Simulation {
namespace {

constexpr std::size_t kStackSize = std::size_t{512} * 1024;
constexpr std::size_t kGuardSize = std::size_t{64} * 1024;  // a multiple of every page size

Fiber* starting = nullptr;

void beginSwitch([[maybe_unused]] void** fakeStack, [[maybe_unused]] const void* bottom,
                 [[maybe_unused]] std::size_t size) {
#ifdef ZORBE_ADDRESS_SANITIZER
  __sanitizer_start_switch_fiber(fakeStack, bottom, size);
#endif
}

void endSwitch([[maybe_unused]] void* fakeStack, [[maybe_unused]] const void** bottom,
               [[maybe_unused]] std::size_t* size) {
#ifdef ZORBE_ADDRESS_SANITIZER
  __sanitizer_finish_switch_fiber(fakeStack, bottom, size);
#endif
}

// Stacks are used again: a simulation starts hundreds of thousands of processes.
std::vector<void*>& spareStacks() {
  static std::vector<void*> stacks;
  return stacks;
}

void* takeStack() {
  if (!spareStacks().empty()) {
    void* const stack = spareStacks().back();
    spareStacks().pop_back();
    return stack;
  }
  void* const memory = mmap(nullptr, kGuardSize + kStackSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED || mprotect(memory, kGuardSize, PROT_NONE) != 0) throw std::bad_alloc();
  return static_cast<char*>(memory) + kGuardSize;
}

}  // namespace

Fiber::Fiber(std::function<void()> body) : body_(std::move(body)), stack_(takeStack()) {
  getcontext(&inside_);
  inside_.uc_stack.ss_sp = stack_;
  inside_.uc_stack.ss_size = kStackSize;
  inside_.uc_link = nullptr;
  insideSide_ = {stack_, kStackSize, nullptr};
  makecontext(&inside_, enter, 0);
}

Fiber::~Fiber() {
  spareStacks().push_back(stack_);
}

void Fiber::swapExceptions() {
  Exceptions current;
  void* const globals = abi::__cxa_get_globals();
  std::memcpy(&current, globals, sizeof current);
  std::memcpy(globals, &exceptions_, sizeof exceptions_);
  exceptions_ = current;
}

void Fiber::resume() {
  const int error = errno;
  starting = this;
  swapExceptions();
  beginSwitch(&outsideSide_.fakeStack, insideSide_.bottom, insideSide_.size);
  swapcontext(&outside_, &inside_);
  endSwitch(outsideSide_.fakeStack, nullptr, nullptr);
  swapExceptions();
  errno = error;
}

void Fiber::enter() {
  Fiber& self = *starting;
  endSwitch(nullptr, &self.outsideSide_.bottom, &self.outsideSide_.size);
  errno = 0;  // as in a new process
  self.body_();
  self.body_ = nullptr;
  self.finished_ = true;
  self.leave(true);
}

void Fiber::suspend() {
  const int error = errno;
  leave(false);
  errno = error;
}

void Fiber::leave(bool forGood) {
  beginSwitch(forGood ? nullptr : &insideSide_.fakeStack, outsideSide_.bottom, outsideSide_.size);
  swapcontext(&inside_, &outside_);
  endSwitch(insideSide_.fakeStack, &outsideSide_.bottom, &outsideSide_.size);
}

}  // namespace Zorbe::Test::Simulation
