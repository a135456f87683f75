// SPDX-License-Identifier: MIT
#include "stress/sweep/event_recorder.h"

#include <brask/exception.h>

#include <cxxabi.h>
#include <new>
#include <system_error>

#include "fault/fault.h"

namespace Zorbe::Test::Sweep {
namespace {

struct Leak {
  const char* text;  // of the exception
  unsigned descriptors;
};

// The only exceptions that leave descriptors open: a thread in the wrong namespace must not
// continue as if nothing had happened, and sockets that cannot be set up stay as they are.
const Leak kLeaks[] = {
    {"Util::socket() failed to switch back to caller's namespace", 2},
    {"Util::socket() failed to close( localNsFd )", 1},
    {"Util::acquireWriterLock() setsockopt() failed: ", 1},
    {"ReaderKickSm::doConnect() setsockopt() failed ", 1},
    {"WriterUnlockSm::doConnect() setsockopt() failed", 1},
};

}  // namespace

void EventRecorder::emit(std::ostringstream& message, int level) {
  messages_.push_back({level, message.str()});
}

void EventRecorder::note(const std::string& text) {
  const Fault::Bypass bypass;
  messages_.push_back({9, text});
}

void EventRecorder::note(const std::exception_ptr& exception) {
  const Fault::Bypass bypass;
  try {
    std::rethrow_exception(exception);
  } catch (const Brask::Exception& error) {
    thrown_.emplace_back(error.what());
  } catch (const std::system_error& error) {
    thrown_.emplace_back(error.what());
  } catch (const std::bad_alloc&) {
    ++badAllocs_;
  } catch (const std::exception& other) {
    unexpectedExceptions_.emplace_back(other.what());
  } catch (...) {
    unexpectedExceptions_.emplace_back(abi::__cxa_current_exception_type()->name());
  }
}

unsigned EventRecorder::documentedLeaks() const {
  unsigned descriptors = 0;
  for (const std::string& text : thrown_) {
    for (const Leak& leak : kLeaks) {
      if (text.compare(0, std::string(leak.text).size(), leak.text) == 0) {
        descriptors += leak.descriptors;
      }
    }
  }
  return descriptors;
}

}  // namespace Zorbe::Test::Sweep
