// SPDX-License-Identifier: MIT
#include "c/failure.h"

#include <zorbe/exceptions.h>
#include <zorbe/table/error.h>

#include <algorithm>
#include <exception>
#include <new>

namespace Zorbe::Table {

namespace {

int codeOf(ErrorCode code) {
  switch (code) {
    case ErrorCode::full:
      return ZORBE_E_FULL;
    case ErrorCode::noSpace:
      return ZORBE_E_NO_SPACE;
    case ErrorCode::tooLarge:
      return ZORBE_E_TOO_LARGE;
    case ErrorCode::schema:
      return ZORBE_E_SCHEMA;
    case ErrorCode::version:
      return ZORBE_E_VERSION;
    case ErrorCode::denied:
      return ZORBE_E_DENIED;
    case ErrorCode::usage:
      return ZORBE_E_USAGE;
    case ErrorCode::closed:
      return ZORBE_E_CLOSED;
    case ErrorCode::system:
      break;
  }
  return ZORBE_E_SYSTEM;
}

template <size_t room>
void copyText(char (&to)[room], std::string_view text) {
  const size_t length = std::min(text.size(), room - 1);
  std::copy_n(text.data(), length, to);
  to[length] = 0;
}

}  // namespace

int Failure::set(int code, std::string_view text) noexcept {
  if (!isBeingSet_.exchange(true, std::memory_order_acquire)) {
    copyText(text_, text);
    isBeingSet_.store(false, std::memory_order_release);
  }
  code_.store(code, std::memory_order_relaxed);
  return code;
}

// Of an opening, which one thread makes.
int Failure::setDuplicate(std::string_view text, uint32_t pid, std::string_view owner) noexcept {
  pid_ = pid;
  copyText(owner_, owner);
  return set(ZORBE_E_DUPLICATE, text);
}

int Failure::setCurrent() noexcept {
  try {
    throw;
  } catch (const Error& error) {
    return set(codeOf(error.code()), error.what());
  } catch (const DuplicateWriterException& duplicate) {
    return setDuplicate(duplicate.what(), duplicate.pid, duplicate.owner);
  } catch (const CorruptionDetectedException& corrupt) {
    return set(ZORBE_E_CORRUPT, corrupt.what());
  } catch (const std::bad_alloc&) {
    return set(ZORBE_E_NO_MEMORY, "out of memory");
  } catch (const std::exception& failure) {
    return set(ZORBE_E_SYSTEM, failure.what());
  } catch (...) {  // of a program's log function
    return set(ZORBE_E_SYSTEM, "an exception that is none of the standard library's");
  }
}

}  // namespace Zorbe::Table
