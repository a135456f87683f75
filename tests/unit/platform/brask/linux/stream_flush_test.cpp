// SPDX-License-Identifier: MIT
//
// What has been emitted has left the stream's buffer.
#include <brask/linux/stream_debug_handler.h>
#include <gtest/gtest.h>

#include <ostream>
#include <sstream>
#include <streambuf>

namespace {

// Counts how often what was written is asked to be passed on.
class Buffer : public std::stringbuf {
 public:
  int flushes = 0;

 protected:
  int sync() override {
    ++flushes;
    return std::stringbuf::sync();
  }
};

}  // namespace

TEST(StreamDebugHandlerFlushTest, EachLineIsPassedOnAtOnce) {
  Buffer buffer;
  std::ostream stream(&buffer);
  Brask::Linux::StreamDebugHandler handler(stream, 9);
  for (int lines = 1; lines <= 3; ++lines) {
    std::ostringstream message;
    message << "line " << lines;
    handler.emit(message, 5);
    EXPECT_EQ(lines, buffer.flushes);
  }
}
